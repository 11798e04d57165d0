#include "crash/document/stack_walk.h"

#include <intrin.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "base/wide_number_text.h"
#include "crash/document/memory_probe.h"
#include "crash/document/module_lookup.h"

namespace TAVU::crash {

namespace {

constexpr int kMostEntries = 20;

// How a frame lies in memory, followed by five words of parameters.
struct Frame {
  std::uint64_t next;
  std::uint64_t return_address;
};
using Parameters = std::array<std::uint32_t, 5>;

// The test covers fewer bytes than frame and parameters take (36). Where the rest cannot be read,
// the entry has no parameters, as if the test had failed.
constexpr std::size_t kTestedForParameters = 28;

enum class EntryKind { kException, kCaller };

bool ReadParameters(std::uint64_t frame, Parameters& parameters) noexcept {
  return IsReadable(frame, kTestedForParameters) &&
         TryRead(frame + sizeof(Frame), parameters.data(), sizeof parameters);
}

std::wstring ParametersText(const Parameters& parameters) {
  std::wstring text;
  for (const std::uint32_t word : parameters) {
    if (!text.empty()) text.append(L", ");
    base::AppendHex(text, word, base::HexDigits::kLower);
  }
  return text;
}

std::unique_ptr<XmlNode> DescribeFunction(const api::ApiLock::Guard& held, std::uint64_t frame,
                                          std::uint64_t return_address, EntryKind kind) {
  auto function = XmlNode::Make(L"function");
  function->AddNumberAttribute(L"addr", return_address, 16);
  const std::wstring module = FindModuleByAddress(held, static_cast<std::uint32_t>(return_address));
  if (module.empty()) return function;
  if (kind == EntryKind::kCaller) {
    Parameters parameters;
    if (!ReadParameters(frame, parameters)) return function;
    function->AddAttribute(L"params", ParametersText(parameters));
  }
  function->AddAttribute(L"module", EscapeXmlText(module));
  return function;
}

}  // namespace

// Not inlined: the walk without an exception starts from this function's own frame.
[[gnu::noinline]] std::unique_ptr<XmlNode> BuildCallStack(
    const api::ApiLock::Guard& held, const EXCEPTION_POINTERS* exceptionPointers) {
  auto call_stack = XmlNode::Make(L"call_stack");
  Frame first = {};
  auto frame = reinterpret_cast<std::uint64_t>(&first);
  if (exceptionPointers != nullptr) {
    first.next = exceptionPointers->ContextRecord->Rbp;
    first.return_address =
        reinterpret_cast<std::uint64_t>(exceptionPointers->ExceptionRecord->ExceptionAddress);
  } else {
    // Compiled with a frame pointer, this function has saved its caller's right below its own
    // return address.
    frame = reinterpret_cast<std::uint64_t>(_AddressOfReturnAddress()) - sizeof(std::uint64_t);
    static_cast<void>(TryRead(frame, &frame, sizeof frame));
  }

  auto kind = exceptionPointers != nullptr ? EntryKind::kException : EntryKind::kCaller;
  for (int count = 0; count < kMostEntries; ++count) {
    Frame links;
    if (!TryRead(frame, &links, sizeof links)) break;
    if (!IsReadable(links.return_address, 1)) break;
    call_stack->AddChild(DescribeFunction(held, frame, links.return_address, kind));
    kind = EntryKind::kCaller;
    frame = links.next;
  }
  return call_stack;
}

}  // namespace TAVU::crash
