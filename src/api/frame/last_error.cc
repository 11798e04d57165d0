#include "api/frame/last_error.h"

#include <windows.h>

#include <new>
#include <utility>

#include "base/slim_lock.h"

namespace TAVU::api {
namespace {

// A thread's code, in a list of all cells, so that unloading the library frees those of threads
// that go on running too.
struct Cell {
  std::uint32_t code = 0;
  Cell* next = nullptr;
  Cell** link = nullptr;  // what points to this cell
};

constinit DWORD tlsIndex = TLS_OUT_OF_INDEXES;
constinit base::SlimLock listLock;
constinit Cell* firstCell = nullptr;

// TlsGetValue clears the thread's system error, which belongs to the host and to the network layer.
class SystemErrorKeeper {
 public:
  SystemErrorKeeper() noexcept = default;
  SystemErrorKeeper(const SystemErrorKeeper&) = delete;
  SystemErrorKeeper& operator=(const SystemErrorKeeper&) = delete;
  ~SystemErrorKeeper() { ::SetLastError(error_); }

 private:
  const DWORD error_ = ::GetLastError();
};

void Link(Cell* cell) noexcept {
  const base::SlimLock::Guard guard(listLock);
  cell->next = firstCell;
  cell->link = &firstCell;
  if (firstCell != nullptr) firstCell->link = &cell->next;
  firstCell = cell;
}

void Unlink(Cell* cell) noexcept {
  const base::SlimLock::Guard guard(listLock);
  *cell->link = cell->next;
  if (cell->next != nullptr) cell->next->link = cell->link;
}

Cell* TakeAll() noexcept {
  const base::SlimLock::Guard guard(listLock);
  return std::exchange(firstCell, nullptr);
}

Cell* FindCell() noexcept {
  return static_cast<Cell*>(::TlsGetValue(tlsIndex));
}

// The calling thread's cell, made on the spot when it has none; null when that fails.
Cell* FindOrMakeCell() noexcept {
  if (tlsIndex == TLS_OUT_OF_INDEXES) return nullptr;
  if (Cell* cell = FindCell()) return cell;
  Cell* cell = new (std::nothrow) Cell;
  if (cell == nullptr) return nullptr;
  if (!::TlsSetValue(tlsIndex, cell)) {
    delete cell;
    return nullptr;
  }
  Link(cell);
  return cell;
}

}  // namespace

bool LastErrorSlot::AttachProcess() noexcept {
  if (tlsIndex == TLS_OUT_OF_INDEXES) tlsIndex = ::TlsAlloc();
  if (tlsIndex == TLS_OUT_OF_INDEXES) return false;
  AttachThread();
  return true;
}

void LastErrorSlot::AttachThread() noexcept {
  static_cast<void>(FindOrMakeCell());  // without memory now, the first need tries again
}

void LastErrorSlot::DetachThread() noexcept {
  if (tlsIndex == TLS_OUT_OF_INDEXES) return;
  Cell* cell = FindCell();
  if (cell == nullptr) return;
  ::TlsSetValue(tlsIndex, nullptr);
  Unlink(cell);
  delete cell;
}

void LastErrorSlot::DetachProcess() noexcept {
  if (tlsIndex == TLS_OUT_OF_INDEXES) return;
  Cell* cell = TakeAll();
  while (cell != nullptr) delete std::exchange(cell, cell->next);
  ::TlsFree(tlsIndex);
  tlsIndex = TLS_OUT_OF_INDEXES;
}

void SetLastErrorCode(std::uint32_t code) noexcept {
  const SystemErrorKeeper keeper;
  if (Cell* cell = FindOrMakeCell()) cell->code = code;
}

std::uint32_t GetLastErrorCode() noexcept {
  const SystemErrorKeeper keeper;
  const Cell* cell = FindOrMakeCell();
  return cell != nullptr ? cell->code : 0;
}

}  // namespace TAVU::api
