// The file itself: what it imports, and where it wants to lie.
#include <gtest/gtest.h>
#include <windows.h>

#include <set>
#include <string>

namespace {

template <typename T>
const T* At(DWORD rva) {
  static const char* const base = reinterpret_cast<const char*>(LoadLibraryW(L"TAVU.dll"));
  return reinterpret_cast<const T*>(base + rva);
}
const IMAGE_OPTIONAL_HEADER64& Header() {
  const auto offset = static_cast<DWORD>(At<IMAGE_DOS_HEADER>(0)->e_lfanew);
  return At<IMAGE_NT_HEADERS64>(offset)->OptionalHeader;
}
template <typename T>
const T* Directory(int index) {
  return At<T>(Header().DataDirectory[index].VirtualAddress);
}

TEST(Image, ImportsLibrariesOfWindowsOnly) {
  const auto* entry = Directory<IMAGE_IMPORT_DESCRIPTOR>(IMAGE_DIRECTORY_ENTRY_IMPORT);
  std::set<std::string> imported;
  for (; entry->Name != 0; ++entry) imported.insert(At<char>(entry->Name));
  EXPECT_EQ(imported,
            (std::set<std::string>{"ADVAPI32.dll", "KERNEL32.dll", "WS2_32.dll", "msvcrt.dll"}));
}

TEST(Image, LiesAbove4GiBWhereverTheSystemLikes) {
  // Near the system's own libraries, which the jump of the filter guard depends on. (In memory the
  // header's own base is the actual one; nothing else of the process lies at the preferred one.)
  EXPECT_GT(Header().ImageBase, 0xFFFFFFFFu);
  constexpr WORD kWanted =
      IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE | IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA;
  EXPECT_EQ(Header().DllCharacteristics & kWanted, kWanted);
}

}  // namespace
