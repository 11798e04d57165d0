// The pieces that a crash is described with, each by itself.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
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
  const SIZE_T written = ::VirtualQueryEx(::GetCurrentProcess(), address, region, size);
  if (all_looks_readable) region->State = MEM_COMMIT, region->Protect = PAGE_READWRITE;
  return written;
}

}  // namespace
extern "C" {
decltype(&QueryMemory) __imp_VirtualQuery = &QueryMemory;
}

namespace TAVU::crash {
namespace {

using test::Json;

std::wstring Wide(const Json& text) {
  const std::string utf8 = test::TextOf(text);
  return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

std::string ReadFile(const char* path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

const Json vectors = test::LoadVectors("texts.json");

// "name=value name=value" of an element's attributes.
std::string Attributes(const XmlNode& node) {
  std::wstring all;
  for (const auto& [name, value] : node.attributes()) {
    all += (all.empty() ? L"" : L" ") + name + L"=" + value;
  }
  return {all.begin(), all.end()};
}

TEST(Texts, AreThoseOfTheReference) {
  for (const Json& c : vectors["escape_xml_text"]) {
    EXPECT_EQ(EscapeXmlText(Wide(c["text"])), Wide(c["escaped"])) << c;
  }
  for (const Json& c : vectors["escape_command_line_value"]) {
    EXPECT_EQ(EscapeCommandLineValue(Wide(c["text"])), Wide(c["escaped"])) << c;
  }
  for (const Json& c : vectors["number_attribute"]) {
    XmlNode node(L"node");
    node.AddNumberAttribute(L"n", std::stoull(c["value"].get<std::string>()), c["base"]);
    EXPECT_EQ(Attributes(node), "n=" + c["text"].get<std::string>()) << c;
  }
  for (const Json& c : vectors["crash_files"]) {
    const auto part = [&](std::size_t i) { return c["local_time"][i].get<WORD>(); };
    const SYSTEMTIME time = {part(0), part(1), 0, part(2), part(3), part(4), part(5), 999};
    const CrashFiles files = NameCrashFiles(Wide(c["temp_path"]), Wide(c["app_exe_file"]), time);
    EXPECT_EQ(files.dumpPath, Wide(c["dump"]));
    EXPECT_EQ(files.infoPath, Wide(c["info"]));
  }
  for (const Json& c : vectors["restart_command_line"]) {
    const Json& given = c["given"];
    EXPECT_EQ(BuildRestartCommandLine(Wide(given["reporter_path"]), Wide(given["app_execute_cmd"]),
                                      given["process_id"]),
              Wide(c["line"]));
  }
  for (const Json& c : vectors["reporter_command_line"]) {
    const Json& given = c["given"];
    const auto text = [&](const char* key) { return Wide(given[key]); };
    const std::wstring line = BuildReporterCommandLine(
        {std::stoull(given["exception_address"].get<std::string>(), nullptr, 16), text("dump_path"),
         text("info_path"), text("reporter_path"), text("app_exe_file"), text("software_id"),
         text("software_ver"), text("user_id"), text("server_host"), given["server_port"],
         given["auto_report"], text("app_show_name"), given["report_lang"]});
    EXPECT_EQ(line, Wide(c["line"])) << given;
  }
  EXPECT_NE(BuildReporterCommandLine({.reportLang = 0xFFFFFFFE}).find(L" reportLang=-2 "),
            std::wstring::npos);
}

std::unique_ptr<XmlNode> TreeOf(const Json& notation) {
  auto node = std::make_unique<XmlNode>(Wide(notation["name"]));
  node->SetText(Wide(notation["text"]));
  for (const Json& pair : notation["attributes"]) node->AddAttribute(Wide(pair[0]), Wide(pair[1]));
  for (const Json& child : notation["children"]) node->AddChild(TreeOf(child));
  return node;
}

TEST(Writer, WritesTheBytesOfTheReference) {
  for (const Json& c : vectors["xml_documents"]) {
    ASSERT_TRUE(WriteXmlFile(*TreeOf(c["tree"]), L"tree.xml"));
    const std::string bytes = ReadFile("tree.xml");
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

void* const here = reinterpret_cast<void*>(&ReadFile);
const std::string in_here = " module=crash_builders_test.exe";
std::uint64_t AddressOf(const void* frame) {
  return reinterpret_cast<std::uint64_t>(frame);
}
std::string Low32(const void* address) {
  XmlNode node(L"node");
  node.AddNumberAttribute(L"addr", AddressOf(address), 16);
  return Attributes(node);
}

// The other kinds have their real crashes.
TEST(Exception, IsDescribed) {
  const struct {
    DWORD code;
    ULONG_PTR words[2];
    void* address;
    std::string expected;
  } kCases[] = {
      {0xC0000005, {0, 0}, here, " read_addr=0x00000000 type=EXCEPTION_ACCESS_VIOLATION" + in_here},
      {0xC0000005, {1, 0x512345678}, 0, " write_addr=0x12345678 type=EXCEPTION_ACCESS_VIOLATION"},
      {0xC0000006, {1, 16}, here, " type=EXCEPTION_IN_PAGE_ERROR" + in_here},
      {0xC00000FD, {}, nullptr, " type=EXCEPTION_STACK_OVERFLOW"},
      {0xC0000096, {}, nullptr, " type=EXCEPTION_PRIV_INSTRUCTION"},
      {0xC0000007, {}, nullptr, " type=UNKNOWN_EXCEPTION"},
  };
  for (const auto& c : kCases) {
    Crash crash;
    crash.record.ExceptionCode = c.code;
    crash.record.ExceptionAddress = c.address;
    std::copy(std::begin(c.words), std::end(c.words), crash.record.ExceptionInformation);
    EXPECT_EQ(Attributes(*BuildException(&crash.pointers)), Low32(c.address) + c.expected);
  }
}

struct TestFrame {
  std::uint64_t next;
  const void* return_address;
  std::uint32_t words[5];
};

std::vector<std::string> Walk(const void* frame) {
  Crash crash;
  crash.context.Rbp = AddressOf(frame);
  crash.record.ExceptionAddress = here;
  std::vector<std::string> entries;
  const auto stack = BuildCallStack(&crash.pointers);
  for (const auto& function : stack->children()) entries.push_back(Attributes(*function));
  return entries;
}

TEST(StackWalk, DescribesEachEntry) {
  const TestFrame outside = {0, &outside, {}};
  const TestFrame inside = {AddressOf(&outside), here, {0, 1, 0xABCDEF01, 16, 0xFFFFFFFF}};
  EXPECT_EQ(Walk(&inside),
            (std::vector{Low32(here) + in_here,
                         Low32(here) + " params=0, 1, abcdef01, 10, ffffffff" + in_here,
                         Low32(&outside)}));
}

TEST(StackWalk, EndsAtDamage) {
  constexpr std::size_t kPage = 4096;
  auto* const pages =
      static_cast<char*>(::VirtualAlloc(nullptr, 3 * kPage, MEM_RESERVE, PAGE_READWRITE));
  ::VirtualAlloc(pages, kPage, MEM_COMMIT, PAGE_READWRITE);
  char* const guard = pages + 2 * kPage;
  ::VirtualAlloc(guard, kPage, MEM_COMMIT, PAGE_READWRITE | PAGE_GUARD);
  const TestFrame cycle = {AddressOf(&cycle), here, {}}, last = {0, here, {}};
  const TestFrame no_code = {0, reinterpret_cast<void*>(1), {}};
  // The last `size` bytes that can be read: a frame, or what there is of it.
  const auto cut_to = [&](std::size_t size) {
    return static_cast<const void*>(std::memcpy(pages + kPage - size, &last, size));
  };
  const auto number = [](std::uint64_t address) { return reinterpret_cast<void*>(address); };
  std::memcpy(pages + 3, &last, sizeof last);
  const struct {
    const char* name;
    const void* frame;
    std::size_t entries;
    bool has_parameters = false;
    std::size_t size = 0;
  } kCases[] = {
      {"null", nullptr, 1},
      {"kernel address", number(0xFFFF800000001000), 1},
      {"outside all address spaces", number(0x0123456789ABCDE0), 1},
      {"wraps around", number(0xFFFFFFFFFFFFFFFC), 1},
      {"reserved page", pages + kPage, 1},
      {"guard page", guard, 1},
      {"return address cut", nullptr, 1, false, 12},
      {"return address not readable", &no_code, 1},
      {"parameters cut", nullptr, 2, false, 27},
      {"parameters cut behind what is tested", nullptr, 2, false, 28},
      {"whole", nullptr, 2, true, 36},
      {"odd address", pages + 3, 2, true},
      {"cycle", &cycle, 20, true},
  };
  for (const auto& c : kCases) {
    const auto entries = Walk(c.size > 0 ? cut_to(c.size) : c.frame);
    EXPECT_EQ(entries.size(), c.entries) << c.name;
    EXPECT_EQ(entries.back().find("params=") != std::string::npos, c.has_parameters) << c.name;
  }
  all_looks_readable = true;
  EXPECT_EQ(Walk(pages + kPage).size(), 1u) << "taken away after it was asked for";
  all_looks_readable = false;
  MEMORY_BASIC_INFORMATION region;
  ::VirtualQuery(guard, &region, sizeof region);
  EXPECT_NE(region.Protect & PAGE_GUARD, 0u) << "the walk took the guard off";
}

// Calls BuildCallStack(nullptr) from a frame of the plainest form and returns its own return
// address. Its first argument is where the result goes, as in BuildCallStack itself.
[[gnu::naked]] const void* WalkFromPlainFrame(void* /*result*/, void* /*null*/) {
  asm("pushq %%rbp; movq %%rsp, %%rbp; subq $32, %%rsp; call %c0; movq 8(%%rbp), %%rax; leave; "
      "ret" ::"i"(&BuildCallStack));
}

TEST(StackWalk, WithoutExceptionStartsBehindItsCaller) {
  std::unique_ptr<XmlNode> stack;
  const void* const caller = WalkFromPlainFrame(&stack, nullptr);
  EXPECT_TRUE(Attributes(*stack->children().at(0)).starts_with(Low32(caller) + " params="));
}

template <DWORD code, typename Unit>
bool Raise(Unit* /*buffer*/, std::int32_t /*capacity*/) {
  ::RaiseException(code, EXCEPTION_NONCONTINUABLE, 0, nullptr);
  return true;
}

TEST(CustomInfo, ComesFromCallbackOrStore) {
  const CustomInfoCallbackW fill = [](wchar_t* buffer, std::int32_t capacity) {
    std::wmemset(buffer, L'w', static_cast<std::size_t>(capacity) + 1);  // no terminator
    return capacity == 4095;
  };
  const CustomInfoCallbackW refuse = [](wchar_t* buffer, std::int32_t) {
    return !(*buffer = L'r');
  };
  const CustomInfoCallbackA narrow = [](char* buffer, std::int32_t capacity) {
    return std::strcpy(buffer, "n&<") != nullptr && capacity == 4095;
  };
  const CustomInfoCallbackA empty = [](char* buffer, std::int32_t) { return (*buffer = 0) == 0; };
  const struct {
    const char* name;
    CustomInfoCallbackW wide;
    CustomInfoCallbackA narrow;
    std::wstring expected;  // empty: no element
  } kCases[] = {
      {"stored", nullptr, nullptr, L"s & <t>"},
      {"wide", fill, nullptr, std::wstring(4095, L'w')},
      {"narrow", nullptr, narrow, L"n&<"},
      {"refused", refuse, nullptr, L""},
      {"empty", nullptr, empty, L""},
      {"throw of Visual C++", Raise<0xE06D7363>, nullptr, L""},
      {"throw of GCC", nullptr, Raise<0x20474343>, L""},
  };
  CrashHandler& handler = CrashHandler::Get();
  for (const auto& c : kCases) {
    handler.customInfoCallbackW = c.wide;
    handler.customInfoCallbackA = c.narrow;
    std::wcscpy(handler.additionalInfo.data(), L"s & <t>");
    const auto node = BuildCustomInfo();
    ASSERT_EQ(node == nullptr, c.expected.empty()) << c.name;
    if (node) EXPECT_EQ(node->text(), c.expected) << c.name;
  }
  handler.customInfoCallbackA = nullptr;
}

TEST(ModuleList, KeepsWhatAModuleDoesNotGive) {
  ASSERT_NE(::LoadLibraryW(L"crash_versioned_module.dll"), nullptr);
  ::CopyFileW(L"crash_bare_module.dll", L"gone & away.dll", FALSE);
  ASSERT_NE(::LoadLibraryW(L"gone & away.dll"), nullptr);
  ASSERT_TRUE(::MoveFileExW(L"gone & away.dll", L"moved.dll", MOVEFILE_REPLACE_EXISTING));

  ASSERT_TRUE(BuildCrashInfoDocument(nullptr, L"document.xml"));
  EXPECT_EQ(CrashHandler::Get().versionLibrary, nullptr);
  const std::string document = ReadFile("document.xml");
  const std::string size = std::to_string(ReadFile("crash_versioned_module.dll").size());
  // CTest runs this in the zone of Shanghai.
  const std::string versions = "file_ver=\"1.2.3.4\" prod_ver=\"5.6.7.65535\" list_modified=\"";
  for (const std::string& facts :
       {"crash_versioned_module.dll\" file_size=\"" + size + "\" .*" + versions + "20",
        "gone &amp; away.dll\" file_size=\"" + size + "\" .*" + versions +
            "1601-01-01 08:00:00\""}) {
    const std::string name = facts.substr(0, facts.find('"') + 1);
    EXPECT_TRUE(
        std::regex_search(document, std::regex("<module name=\"" + name + " path=\".*" + facts)))
        << facts;
  }
}

}  // namespace
}  // namespace TAVU::crash
