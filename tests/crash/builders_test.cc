// The pieces that a crash is described with, each by itself.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "crash/crash_document.h"
#include "crash/crash_files.h"
#include "crash/crash_handler.h"
#include "crash/custom_info.h"
#include "crash/reporter_command_line.h"
#include "crash/stack_walk.h"
#include "crash/xml_writer.h"
#include "support/vectors.h"

namespace {

bool all_looks_readable = false;

// Stands between this program and the system's VirtualQuery.
SIZE_T WINAPI QueryMemory(const void* address, MEMORY_BASIC_INFORMATION* region, SIZE_T size) {
  const auto query = reinterpret_cast<decltype(&QueryMemory)>(
      ::GetProcAddress(::GetModuleHandleW(L"kernel32"), "VirtualQuery"));
  const SIZE_T written = query(address, region, size);
  if (!all_looks_readable) return written;
  region->State = MEM_COMMIT;
  region->Protect = PAGE_READWRITE;
  return written;
}

}  // namespace
extern "C" {
extern decltype(&QueryMemory) __imp_VirtualQuery;
decltype(&QueryMemory) __imp_VirtualQuery = &QueryMemory;
}

namespace TAVU::crash {
namespace {

using test::Json;

std::wstring Wide(const std::string& utf8) {
  std::wstring wide(utf8.size(), L'\0');
  wide.resize(static_cast<std::size_t>(
      ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), wide.data(),
                            static_cast<int>(wide.size()))));
  return wide;
}
std::wstring Wide(const Json& text) {
  return Wide(test::TextOf(text));
}

std::string ReadFile(const std::wstring& path) {
  std::ifstream stream(std::string(path.begin(), path.end()), std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

const Json& Texts() {
  static const Json texts = test::LoadVectors("texts.json");
  return texts;
}

// "name=value name=value" of an element's attributes.
std::string Attributes(const XmlNode& node) {
  std::wstring all;
  for (const auto& [name, value] : node.attributes()) {
    all += (all.empty() ? L"" : L" ") + name + L"=" + value;
  }
  return {all.begin(), all.end()};
}

std::string Low32(const void* address) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X",
                static_cast<unsigned>(reinterpret_cast<std::uint64_t>(address)));
  return text;
}

TEST(Texts, EscapesAndNumbers) {
  for (const Json& c : Texts()["escape_xml_text"]) {
    EXPECT_EQ(EscapeXmlText(Wide(c["text"])), Wide(c["escaped"])) << c;
  }
  for (const Json& c : Texts()["escape_command_line_value"]) {
    EXPECT_EQ(EscapeCommandLineValue(Wide(c["text"])), Wide(c["escaped"])) << c;
  }
  for (const Json& c : Texts()["number_attribute"]) {
    XmlNode node(L"node");
    node.AddNumberAttribute(L"n", std::stoull(c["value"].get<std::string>()), c["base"]);
    EXPECT_EQ(Attributes(node), "n=" + c["text"].get<std::string>()) << c;
  }
}

TEST(Texts, FileNamesAndCommandLines) {
  for (const Json& c : Texts()["crash_files"]) {
    const auto part = [&](std::size_t i) { return c["local_time"][i].get<WORD>(); };
    const SYSTEMTIME time = {part(0), part(1), 0, part(2), part(3), part(4), part(5), 999};
    const CrashFiles files = NameCrashFiles(Wide(c["temp_path"]), Wide(c["app_exe_file"]), time);
    EXPECT_EQ(files.dumpPath, Wide(c["dump"]));
    EXPECT_EQ(files.infoPath, Wide(c["info"]));
  }
  for (const Json& c : Texts()["reporter_command_line"]) {
    const Json& given = c["given"];
    const auto text = [&](const char* key) { return Wide(given[key]); };
    const auto dump = text("dump_path"), info = text("info_path"), folder = text("reporter_path"),
               exe = text("app_exe_file"), id = text("software_id"), version = text("software_ver"),
               user = text("user_id"), host = text("server_host"), name = text("app_show_name");
    EXPECT_EQ(BuildReporterCommandLine(
                  {std::stoull(given["exception_address"].get<std::string>(), nullptr, 16), dump,
                   info, folder, exe, id, version, user, host, given["server_port"],
                   given["auto_report"], name, given["report_lang"]}),
              Wide(c["line"]))
        << given;
  }
  EXPECT_NE(BuildReporterCommandLine({.reportLang = 0xFFFFFFFE}).find(L" reportLang=-2 "),
            std::wstring::npos);
  for (const Json& c : Texts()["restart_command_line"]) {
    const Json& given = c["given"];
    EXPECT_EQ(BuildRestartCommandLine(Wide(given["reporter_path"]), Wide(given["app_execute_cmd"]),
                                      given["process_id"]),
              Wide(c["line"]));
  }
}

std::unique_ptr<XmlNode> TreeOf(const Json& notation) {
  auto node = std::make_unique<XmlNode>(Wide(notation["name"]));
  node->SetText(Wide(notation["text"]));
  for (const Json& pair : notation["attributes"]) node->AddAttribute(Wide(pair[0]), Wide(pair[1]));
  for (const Json& child : notation["children"]) node->AddChild(TreeOf(child));
  return node;
}

TEST(Writer, WritesTheBytesOfTheReference) {
  for (const Json& c : Texts()["xml_documents"]) {
    ASSERT_TRUE(WriteXmlFile(*TreeOf(c["tree"]), L"tree.xml"));
    const std::string bytes = ReadFile(L"tree.xml");
    EXPECT_EQ(test::Hex(bytes.data(), bytes.size()), c["bytes"]);
  }
  EXPECT_FALSE(WriteXmlFile(XmlNode(L"node"), L"no-such-folder\\tree.xml"));
}

// An exception as the filter is given it.
struct Crash {
  EXCEPTION_RECORD record = {};
  CONTEXT context = {};
  EXCEPTION_POINTERS pointers = {&record, &context};
};

TEST(Exception, IsDescribed) {
  void* const here = reinterpret_cast<void*>(&ReadFile);
  const std::string at = "addr=" + Low32(here), in = " module=crash_builders_test.exe";
  const struct {
    DWORD code;
    ULONG_PTR words[2];
    void* address;
    std::string expected;
  } kCases[] = {
      {0xC0000005, {0, 0}, here, at + " read_addr=0x00000000 type=EXCEPTION_ACCESS_VIOLATION" + in},
      {0xC0000005,
       {1, 0x512345678},
       here,
       at + " write_addr=0x12345678 type=EXCEPTION_ACCESS_VIOLATION" + in},
      {0xC0000005,
       {8, 16},
       here,
       at + " write_addr=0x00000010 type=EXCEPTION_ACCESS_VIOLATION" + in},
      {0xC0000006, {1, 16}, here, at + " type=EXCEPTION_IN_PAGE_ERROR" + in},
      {0x80000003, {}, here, at + " type=EXCEPTION_BREAKPOINT" + in},
      {0xC00000FD, {}, here, at + " type=EXCEPTION_STACK_OVERFLOW" + in},
      {0xE06D7363, {}, here, at + " type=Microsoft C++ Exception" + in},
      {0xC0000007, {}, here, at + " type=UNKNOWN_EXCEPTION" + in},
      {0xC0000096, {}, nullptr, "addr=0x00000000 type=EXCEPTION_PRIV_INSTRUCTION"},
  };
  for (const auto& c : kCases) {
    Crash crash;
    crash.record.ExceptionCode = c.code;
    crash.record.ExceptionAddress = c.address;
    std::copy(std::begin(c.words), std::end(c.words), crash.record.ExceptionInformation);
    EXPECT_EQ(Attributes(*BuildException(&crash.pointers)), c.expected);
  }
}

struct TestFrame {
  std::uint64_t next;
  const void* return_address;
  std::uint32_t words[5];
};

std::vector<std::string> Walk(std::uint64_t frame_pointer) {
  Crash crash;
  crash.context.Rbp = frame_pointer;
  crash.record.ExceptionAddress = reinterpret_cast<void*>(&ReadFile);
  std::vector<std::string> entries;
  const auto stack = BuildCallStack(&crash.pointers);
  for (const auto& function : stack->children()) entries.push_back(Attributes(*function));
  return entries;
}
std::uint64_t AddressOf(const void* frame) {
  return reinterpret_cast<std::uint64_t>(frame);
}

TEST(StackWalk, DescribesEachEntry) {
  const void* const code = reinterpret_cast<void*>(&AddressOf);
  const TestFrame outside = {0, &outside, {}};
  const TestFrame inside = {AddressOf(&outside), code, {0, 1, 0xABCDEF01, 16, 0xFFFFFFFF}};
  const std::string module = " module=crash_builders_test.exe";
  EXPECT_EQ(Walk(AddressOf(&inside)),
            (std::vector<std::string>{
                "addr=" + Low32(reinterpret_cast<void*>(&ReadFile)) + module,
                "addr=" + Low32(code) + " params=0, 1, abcdef01, 10, ffffffff" + module,
                "addr=" + Low32(&outside)}));
}

TEST(StackWalk, EndsAtDamage) {
  constexpr std::size_t kPage = 4096;
  auto* const pages =
      static_cast<char*>(::VirtualAlloc(nullptr, 3 * kPage, MEM_RESERVE, PAGE_READWRITE));
  ::VirtualAlloc(pages, kPage, MEM_COMMIT, PAGE_READWRITE);
  char* const guard = pages + 2 * kPage;
  ::VirtualAlloc(guard, kPage, MEM_COMMIT, PAGE_READWRITE | PAGE_GUARD);
  const TestFrame last = {0, reinterpret_cast<void*>(&AddressOf), {}};
  // A frame that ends, or is cut, where the readable memory ends.
  const auto at_end = [&](std::size_t size) {
    std::memcpy(pages + kPage - size, &last, size);
    return AddressOf(pages + kPage - size);
  };
  TestFrame cycle = {AddressOf(&cycle), reinterpret_cast<void*>(&AddressOf), {}};
  TestFrame data[2] = {};
  std::memcpy(reinterpret_cast<char*>(data) + 3, &last, 36);
  const TestFrame no_code = {AddressOf(&last), reinterpret_cast<void*>(1), {}};

  const struct {
    const char* name;
    std::uint64_t frame;
    std::size_t entries;
    bool has_parameters;
  } kCases[] = {
      {"null", 0, 1, false},
      {"kernel address", 0xFFFF800000001000, 1, false},
      {"outside all address spaces", 0x0123456789ABCDE0, 1, false},
      {"wraps around", 0xFFFFFFFFFFFFFFFC, 1, false},
      {"reserved page", AddressOf(pages + kPage), 1, false},
      {"guard page", AddressOf(guard), 1, false},
      {"return address cut", at_end(12), 1, false},
      {"return address not readable", AddressOf(&no_code), 1, false},
      {"parameters cut", at_end(27), 2, false},
      {"parameters cut behind what is tested", at_end(28), 2, false},
      {"whole", at_end(36), 2, true},
      {"odd address", AddressOf(data) + 3, 2, true},
      {"cycle", AddressOf(&cycle), 20, true},
  };
  for (const auto& c : kCases) {
    if (c.frame > AddressOf(pages) && c.frame < AddressOf(pages + kPage)) {
      at_end(kPage - (c.frame - AddressOf(pages)));  // the cases overwrite each other
    }
    const auto entries = Walk(c.frame);
    EXPECT_EQ(entries.size(), c.entries) << c.name;
    EXPECT_EQ(entries.back().find("params=") != std::string::npos, c.has_parameters) << c.name;
  }
  all_looks_readable = true;
  EXPECT_EQ(Walk(AddressOf(pages + kPage)).size(), 1u) << "taken away after it was asked for";
  all_looks_readable = false;
  MEMORY_BASIC_INFORMATION region;
  ::VirtualQuery(guard, &region, sizeof region);
  EXPECT_NE(region.Protect & PAGE_GUARD, 0u) << "the walk took the guard off";
}

// Calls BuildCallStack(nullptr) from a frame of the plainest form. Its first argument is where the
// result goes, as in BuildCallStack itself.
[[gnu::naked]] void WalkFromPlainFrame(void* /*result*/, void* /*null*/) {
  asm("pushq %%rbp; movq %%rsp, %%rbp; subq $32, %%rsp; call %c0; leave; ret" ::"i"(
      &BuildCallStack));
}
[[gnu::noinline]] std::unique_ptr<XmlNode> CallIt() {
  std::unique_ptr<XmlNode> result;
  WalkFromPlainFrame(&result, nullptr);
  return result;
}
DWORD FunctionAround(std::uint64_t address) {
  DWORD64 base = 0;
  const RUNTIME_FUNCTION* const entry = ::RtlLookupFunctionEntry(address, &base, nullptr);
  return entry == nullptr ? 0 : entry->BeginAddress;
}

TEST(StackWalk, WithoutExceptionStartsBehindItsCaller) {
  const auto stack = CallIt();
  ASSERT_FALSE(stack->children().empty());
  const auto& attributes = stack->children()[0]->attributes();
  constexpr std::uint64_t kHighHalf = 0xFFFFFFFF00000000;
  const auto here = reinterpret_cast<std::uint64_t>(&CallIt);
  const auto address = (here & kHighHalf) + std::stoul(attributes.at(0).value, nullptr, 16);
  EXPECT_EQ(FunctionAround(address), FunctionAround(here));
  EXPECT_EQ(attributes.at(1).name, L"params");
}

bool FillWide(wchar_t* buffer, std::int32_t capacity) {
  std::wmemset(buffer, L'w', static_cast<std::size_t>(capacity) + 1);  // no terminator
  return capacity == 4095;
}
bool FillNarrow(char* buffer, std::int32_t capacity) {
  std::strcpy(buffer, "n&<");
  return capacity == 4095;
}
bool Refuse(wchar_t* buffer, std::int32_t) {
  buffer[0] = L'r';
  return false;
}
bool Empty(char* buffer, std::int32_t) {
  buffer[0] = 0;
  return true;
}
bool Throw(wchar_t*, std::int32_t) {
  throw std::runtime_error("thrown");
}
template <DWORD code>
bool RaiseNarrow(char*, std::int32_t) {
  ::RaiseException(code, EXCEPTION_NONCONTINUABLE, 0, nullptr);
  return true;
}

TEST(CustomInfo, ComesFromCallbackOrStore) {
  const struct {
    const char* name;
    CustomInfoCallbackW wide;
    CustomInfoCallbackA narrow;
    const wchar_t* stored;
    std::wstring expected;  // empty: no element
  } kCases[] = {
      {"nothing", nullptr, nullptr, L"", L""},
      {"stored", nullptr, nullptr, L"s & <t>", L"s & <t>"},
      {"wide", FillWide, nullptr, L"stored", std::wstring(4095, L'w')},
      {"narrow", nullptr, FillNarrow, L"stored text", L"n&<"},
      {"refused", Refuse, nullptr, L"stored", L""},
      {"empty", nullptr, Empty, L"stored", L""},
      {"throw of this compiler", Throw, nullptr, L"stored", L""},
      {"throw of Visual C++", nullptr, RaiseNarrow<0xE06D7363>, L"stored", L""},
      {"throw of GCC", nullptr, RaiseNarrow<0x20474343>, L"stored", L""},
  };
  CrashHandler& handler = CrashHandler::Get();
  for (const auto& c : kCases) {
    handler.customInfoCallbackW = c.wide;
    handler.customInfoCallbackA = c.narrow;
    std::wcscpy(handler.additionalInfo.data(), c.stored);
    const auto node = BuildCustomInfo();
    EXPECT_EQ(node ? node->text() : L"", c.expected) << c.name;
    EXPECT_EQ(node == nullptr, c.expected.empty()) << c.name;
  }
  handler.customInfoCallbackW = nullptr;
  handler.customInfoCallbackA = nullptr;
  handler.additionalInfo = {};
}

// The line of the document that describes `module`.
std::string ModuleLine(const std::string& document, const std::string& module) {
  const std::size_t name = document.find("<module name=\"" + module + "\"");
  return name == document.npos ? "" : document.substr(name, document.find('\n', name) - name);
}

TEST(ModuleList, KeepsWhatAModuleDoesNotGive) {
  ASSERT_NE(::LoadLibraryW(L"crash_versioned_module.dll"), nullptr);
  ::CopyFileW(L"crash_bare_module.dll", L"gone & away.dll", FALSE);
  ASSERT_NE(::LoadLibraryW(L"gone & away.dll"), nullptr);
  ASSERT_TRUE(::MoveFileExW(L"gone & away.dll", L"moved.dll", MOVEFILE_REPLACE_EXISTING));
  WIN32_FILE_ATTRIBUTE_DATA versioned = {};
  ::GetFileAttributesExW(L"crash_versioned_module.dll", GetFileExInfoStandard, &versioned);

  ASSERT_TRUE(BuildCrashInfoDocument(nullptr, L"document.xml"));
  EXPECT_EQ(CrashHandler::Get().versionLibrary, nullptr);
  const std::string document = ReadFile(L"document.xml");
  const std::string kVersions = " file_ver=\"1.2.3.4\" prod_ver=\"5.6.7.65535\" list_modified=\"";
  const std::string size = " file_size=\"" + std::to_string(versioned.nFileSizeLow) + "\"";
  const std::string first = ModuleLine(document, "crash_versioned_module.dll");
  EXPECT_NE(first.find(size), first.npos) << first;
  EXPECT_NE(first.find(kVersions + "20"), first.npos) << first;
  const std::string second = ModuleLine(document, "gone &amp; away.dll");
  EXPECT_NE(second.find("\\gone &amp; away.dll\""), second.npos) << second;
  EXPECT_NE(second.find(size), second.npos) << second;
  // CTest runs this in the zone of Shanghai.
  EXPECT_NE(second.find(kVersions + "1601-01-01 08:00:00\">"), second.npos) << second;
}

}  // namespace
}  // namespace TAVU::crash
