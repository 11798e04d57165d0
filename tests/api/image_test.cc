// The file itself: what it exports and imports, where it wants to lie, what it says of itself.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <set>
#include <string>

#include "tavu/tavu.h"

namespace {

class Image {
 public:
  Image() : base_(reinterpret_cast<const char*>(LoadLibraryW(L"TAVU.dll"))) {}

  template <typename T>
  const T* At(DWORD rva) const {
    return reinterpret_cast<const T*>(base_ + rva);
  }
  const IMAGE_NT_HEADERS64& Headers() const {
    return *At<IMAGE_NT_HEADERS64>(static_cast<DWORD>(At<IMAGE_DOS_HEADER>(0)->e_lfanew));
  }
  template <typename T>
  const T* Directory(int index) const {
    return At<T>(Headers().OptionalHeader.DataDirectory[index].VirtualAddress);
  }

 private:
  const char* base_;
};

#define EXPORT(name) #name,
const std::set<std::string> kExports = {
#include "exports.inc"
};

TEST(Image, ExportsTheInterfaceAndNothingElse) {
  const Image image;
  const auto* directory = image.Directory<IMAGE_EXPORT_DIRECTORY>(IMAGE_DIRECTORY_ENTRY_EXPORT);
  const auto* names = image.At<DWORD>(directory->AddressOfNames);
  std::set<std::string> exported;
  for (DWORD i = 0; i < directory->NumberOfNames; ++i) exported.insert(image.At<char>(names[i]));
  EXPECT_EQ(exported, kExports);
  const auto* functions = image.At<DWORD>(directory->AddressOfFunctions);
  const auto unused = std::count(functions, functions + directory->NumberOfFunctions, 0u);
  EXPECT_EQ(directory->NumberOfFunctions - static_cast<DWORD>(unused), kExports.size())
      << "exports without a name";
  EXPECT_STREQ(image.At<char>(directory->Name), "TAVU.dll");
}

TEST(Image, ImportsLibrariesOfWindowsOnly) {
  const std::set<std::string> kSystem = {"ADVAPI32.dll", "KERNEL32.dll", "WS2_32.dll",
                                         "msvcrt.dll"};
  const Image image;
  int count = 0;
  for (const auto* entry = image.Directory<IMAGE_IMPORT_DESCRIPTOR>(IMAGE_DIRECTORY_ENTRY_IMPORT);
       entry->Name != 0; ++entry, ++count) {
    EXPECT_TRUE(kSystem.contains(image.At<char>(entry->Name))) << image.At<char>(entry->Name);
  }
  EXPECT_GT(count, 0);
}

TEST(Image, LiesAbove4GiBWhereverTheSystemLikes) {
  const auto& header = Image().Headers().OptionalHeader;
  // Near the system's own libraries, which the jump of the filter guard depends on. (In memory the
  // header's own base is the actual one; nothing else of the process lies at the preferred one.)
  EXPECT_GT(header.ImageBase, 0xFFFFFFFFu);
  constexpr WORD kWanted =
      IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE | IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA;
  EXPECT_EQ(header.DllCharacteristics & kWanted, kWanted);
}

TEST(Image, TellsTheVersionOfTheHeader) {
  const HMODULE module = LoadLibraryW(L"TAVU.dll");
  HRSRC resource = FindResourceW(module, MAKEINTRESOURCEW(VS_VERSION_INFO), RT_VERSION);
  ASSERT_NE(resource, nullptr);
  // A block's head of three words, its 16-unit key and the padding stand before the fixed part.
  const auto* block = static_cast<const char*>(LockResource(LoadResource(module, resource)));
  const auto* fixed = reinterpret_cast<const VS_FIXEDFILEINFO*>(block + 40);
  constexpr DWORD kHigh = MAKELONG(TAVU_VERSION_MINOR, TAVU_VERSION_MAJOR);
  EXPECT_EQ(fixed->dwFileVersionMS, kHigh);
  EXPECT_EQ(fixed->dwFileVersionLS, DWORD{MAKELONG(0, TAVU_VERSION_PATCH)});
  EXPECT_EQ(fixed->dwProductVersionMS, kHigh);
}

}  // namespace
