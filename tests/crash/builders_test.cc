// The pieces that a crash is described with, each by itself.
#include <gtest/gtest.h>
#include <windows.h>

#include <clocale>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <utility>

#include "api/frame/text_conversion.h"
#include "crash/document/crash_document.h"
#include "crash/document/custom_info.h"
#include "crash/document/stack_walk.h"
#include "crash/document/xml_writer.h"
#include "crash/files/crash_files.h"
#include "crash/launch/reporter_command_line.h"
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

// As the document has it, in one line for elements without children.
std::string Written(const XmlNode& node) {
  return WriteXmlFile(node, L"node.xml") ? ReadFile("node.xml") : "not written";
}

std::unique_ptr<XmlNode> TreeOf(const Json& notation) {
  auto node = std::make_unique<XmlNode>(Wide(notation["name"]));
  node->SetText(Wide(notation["text"]));
  for (const Json& pair : notation["attributes"]) node->AddAttribute(Wide(pair[0]), Wide(pair[1]));
  for (const Json& child : notation["children"]) node->AddChild(TreeOf(child));
  return node;
}

TEST(Texts, AreThoseOfTheReference) {
  const Json vectors = test::LoadVectors("texts.json");
  for (const Json& c : vectors["percent_encode"]) {
    EXPECT_EQ(api::PercentEncode(test::TextOf(c["text"])), c["encoded"].get<std::string>());
  }
  for (const auto& [kind, escape] :
       {std::pair("escape_xml_text", &EscapeXmlText),
        std::pair("escape_command_line_value", &EscapeCommandLineValue)}) {
    for (const Json& c : vectors[kind]) EXPECT_EQ(escape(Wide(c["text"])), Wide(c["escaped"])) << c;
  }
  for (const Json& c : vectors["number_attribute"]) {
    XmlNode node(L"node");
    node.AddNumberAttribute(L"n", std::stoull(c["value"].get<std::string>()), c["base"]);
    EXPECT_EQ(node.attributes().at(0).value, Wide(c["text"])) << c;
  }
  for (const Json& c : vectors["xml_documents"]) {
    const std::string bytes = Written(*TreeOf(c["tree"]));
    EXPECT_EQ(test::Hex(bytes.data(), bytes.size()), c["bytes"]);
  }
  EXPECT_FALSE(WriteXmlFile(XmlNode(L"node"), L"no-such-folder\\node.xml"));
  for (const Json& c : vectors["crash_files"]) {
    const auto part = [&](std::size_t i) { return c["local_time"][i].get<WORD>(); };
    const SYSTEMTIME time = {part(0), part(1), 0, part(2), part(3), part(4), part(5), 999};
    CrashFiles files(Wide(c["temp_path"]), Wide(c["app_exe_file"]));
    for (const SYSTEMTIME& each : {SYSTEMTIME{9999, 12, 0, 31, 23, 59, 59, 0}, time}) {
      files.SetTime(each);  // the second crash of a process has its own names
    }
    EXPECT_EQ(files.dumpPath(), Wide(c["dump"]));
    EXPECT_EQ(files.infoPath(), Wide(c["info"]));
  }
  for (const Json& c : vectors["restart_command_line"]) {
    const auto& given = c["given"];
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

const void* const here = reinterpret_cast<void*>(&ReadFile);
const std::string in_here = " module=\"crash_builders_test.exe\"";

std::string Addr(const void* address) {
  char text[32];
  std::snprintf(text, sizeof text, " addr=\"0x%08lX\"",
                static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(address)));
  return text;
}
std::string Entry(const std::string& attributes) {
  return "\t<function" + attributes + "></function>\n";
}

// The other kinds have their real crashes.
TEST(Exception, IsDescribed) {
  const auto expect = [](DWORD code, ULONG_PTR kind, ULONG_PTR target, const void* address,
                         const std::string& description) {
    EXCEPTION_RECORD record = {code, 0, nullptr, const_cast<void*>(address), 2, {kind, target}};
    EXCEPTION_POINTERS pointers = {&record, nullptr};
    EXPECT_EQ(Written(*BuildException(api::ApiLock::Guard(), &pointers)),
              "<exception" + Addr(address) + description + "></exception>\n");
  };
  const std::string violation = " type=\"EXCEPTION_ACCESS_VIOLATION\"";
  expect(0xC0000005, 0, 0, here, " read_addr=\"0x00000000\"" + violation + in_here);
  expect(0xC0000005, 1, 0x512345678, nullptr, " write_addr=\"0x12345678\"" + violation);
  expect(0xC0000006, 1, 16, here, " type=\"EXCEPTION_IN_PAGE_ERROR\"" + in_here);
  expect(0xC00000FD, 0, 0, nullptr, " type=\"EXCEPTION_STACK_OVERFLOW\"");
  expect(0xC0000096, 0, 0, nullptr, " type=\"EXCEPTION_PRIV_INSTRUCTION\"");
  expect(0xC0000007, 0, 0, nullptr, " type=\"UNKNOWN_EXCEPTION\"");
}

struct Frame {
  const void* next;
  const void* return_address;
  std::uint32_t words[5];
};
const Frame last = {nullptr, here, {0, 1, 0xABCDEF01, 16, 0xFFFFFFFF}};
const std::string at_exception = Entry(Addr(here) + in_here),
                  without_parameters = Entry(Addr(here));
const std::string complete =
    Entry(Addr(here) + " params=\"0, 1, abcdef01, 10, ffffffff\"" + in_here);

// The entries of the walk from an exception in a function with this frame.
std::string Walk(const void* frame) {
  EXCEPTION_RECORD record = {.ExceptionAddress = const_cast<void*>(here)};
  CONTEXT context = {.Rbp = reinterpret_cast<std::uintptr_t>(frame)};
  EXCEPTION_POINTERS pointers = {&record, &context};
  const std::string all = Written(*BuildCallStack(api::ApiLock::Guard(), &pointers));
  const std::size_t begin = all.find('\n') + 1;
  return all.substr(begin, all.rfind("</call_stack>") - begin);
}

TEST(StackWalk, EndsAtDamage) {
  constexpr std::size_t kPage = 4096;
  auto* const pages =
      static_cast<char*>(::VirtualAlloc(nullptr, 3 * kPage, MEM_RESERVE, PAGE_READWRITE));
  ::VirtualAlloc(pages, kPage, MEM_COMMIT, PAGE_READWRITE);
  char* const guard = pages + 2 * kPage;
  ::VirtualAlloc(guard, kPage, MEM_COMMIT, PAGE_READWRITE | PAGE_GUARD);
  // A frame, or its first bytes, where the readable memory ends.
  const auto walk_cut_to = [&](std::size_t size) {
    return Walk(std::memcpy(pages + kPage - size, &last, size));
  };
  const auto number = [](std::uint64_t address) { return reinterpret_cast<void*>(address); };
  const Frame no_code = {nullptr, number(1), {}}, data = {nullptr, &data, {}};
  Frame cycle = last;
  cycle.next = &cycle;

  // Null, of the kernel, of nobody, around the end.
  for (const std::uint64_t address :
       {0ull, 0xFFFF800000001000ull, 0x0123456789ABCDE0ull, 0xFFFFFFFFFFFFFFFCull}) {
    EXPECT_EQ(Walk(number(address)), at_exception) << address;
  }
  for (const char* page : {pages + kPage, guard}) EXPECT_EQ(Walk(page), at_exception);
  EXPECT_EQ(Walk(&no_code), at_exception);
  EXPECT_EQ(walk_cut_to(12), at_exception);
  EXPECT_EQ(walk_cut_to(27), at_exception + without_parameters);
  EXPECT_EQ(walk_cut_to(28), at_exception + without_parameters) << "more is read than tested";
  EXPECT_EQ(walk_cut_to(36), at_exception + complete);
  EXPECT_EQ(Walk(std::memcpy(pages + 3, &last, sizeof last)), at_exception + complete);
  EXPECT_EQ(Walk(&data), at_exception + Entry(Addr(&data))) << "in no module";
  std::string twenty = at_exception;
  for (int i = 1; i < 20; ++i) twenty += complete;
  EXPECT_EQ(Walk(&cycle), twenty);

  all_looks_readable = true;
  EXPECT_EQ(Walk(pages + kPage), at_exception) << "taken away after it was asked for";
  all_looks_readable = false;
  MEMORY_BASIC_INFORMATION region;
  ::VirtualQuery(guard, &region, sizeof region);
  EXPECT_NE(region.Protect & PAGE_GUARD, 0u) << "the walk took the guard off";
}

struct Host {
  template <DWORD code, typename Unit>
  static TAVU_FLAG Raise(Unit* /*buffer*/, std::int32_t /*capacity*/) {
    ::RaiseException(code, EXCEPTION_NONCONTINUABLE, 0, nullptr);
    return 1;
  }
  static TAVU_FLAG Fill(wchar_t* buffer, std::int32_t capacity) {  // and leaves no terminator
    return std::wmemset(buffer, L'w', 4096) != nullptr && capacity == 4095;
  }
  static TAVU_FLAG FillNarrow(char* buffer, std::int32_t capacity) {
    return std::memset(buffer, 'n', 4096) != nullptr && capacity == 4095;
  }
  static TAVU_FLAG Refuse(wchar_t* buffer, std::int32_t /*capacity*/) { return !(*buffer = L'r'); }
  static TAVU_FLAG Empty(char* buffer, std::int32_t /*capacity*/) { return (*buffer = 0) == 0; }
};

TEST(CustomInfo, ComesFromTheHostsFunctionOrTheStoredText) {
  CustomInfo info;
  const auto text = [&info] {
    const auto node = info.Build();
    return node ? node->text() : L"none";
  };
  EXPECT_EQ(text(), L"none");
  info.SetText(std::wstring(5000, L'x').c_str());
  EXPECT_EQ(text(), std::wstring(4095, L'x'));
  info.SetText(std::string(5000, 'y').c_str());
  EXPECT_EQ(text(), std::wstring(4095, L'y'));
  info.SetText("\x80 \xE9");
  EXPECT_EQ(text(), L"\u0080 \u00e9") << "Latin-1 in the locale \"C\", whatever the code page";
  ASSERT_NE(std::setlocale(LC_CTYPE, "Japanese_Japan.932"), nullptr);
  info.SetText("\x82\xA0");
  EXPECT_EQ(text(), L"\u3042");
  info.SetText("\x82");  // half a character
  EXPECT_EQ(text(), L"none") << "of the text before";
  std::setlocale(LC_CTYPE, "C");
  for (const bool wide : {false, true}) {
    info.SetText("before");
    wide ? info.SetText(static_cast<const wchar_t*>(nullptr))
         : info.SetText(static_cast<const char*>(nullptr));
    EXPECT_EQ(text(), L"none");
  }

  // Each replaces the one before.
  info.SetText("s & <t>");
  info.SetNarrowCallback(Host::FillNarrow);
  info.SetWideCallback(Host::Fill);
  EXPECT_EQ(text(), std::wstring(4095, L'w'));
  info.SetNarrowCallback(Host::FillNarrow);
  EXPECT_EQ(text(), std::wstring(4095, L'n'));
  info.SetNarrowCallback(Host::Empty);
  EXPECT_EQ(text(), L"none");
  info.SetWideCallback(Host::Refuse);
  EXPECT_EQ(text(), L"none");
  info.SetWideCallback(Host::Raise<0xE06D7363>);
  EXPECT_EQ(text(), L"none") << "throw of Visual C++";
  info.SetNarrowCallback(Host::Raise<0x20474343>);
  EXPECT_EQ(text(), L"none") << "throw of GCC";
  info.SetText("s & <t>");
  EXPECT_EQ(text(), L"none") << "not used while a function is set";
  info.SetWideCallback(nullptr);
  EXPECT_EQ(text(), L"s & <t>");
}

TEST(ModuleList, KeepsWhatAModuleDoesNotGive) {
  ASSERT_NE(::LoadLibraryW(L"crash_versioned_module.dll"), nullptr);
  ::CopyFileW(L"crash_bare_module.dll", L"gone & away.dll", FALSE);
  ASSERT_NE(::LoadLibraryW(L"gone & away.dll"), nullptr);
  ASSERT_TRUE(::MoveFileExW(L"gone & away.dll", L"moved.dll", MOVEFILE_REPLACE_EXISTING));
  CustomInfo none;
  ASSERT_EQ(BuildCrashInfoDocument(api::ApiLock::Guard(), nullptr, none, L"document.xml"),
            DocumentResult::kWritten);
  const std::string document = ReadFile("document.xml");
  // The second keeps what the first gave. CTest runs this in the zone of Shanghai.
  const std::string facts = " file_size=\"" +
                            std::to_string(ReadFile("crash_versioned_module.dll").size()) +
                            "\" base_addr=\"0x[0-9A-F]{8}\" base_size=\".*\" file_ver=\"1.2.3.4\" "
                            "prod_ver=\"5.6.7.65535\" list_modified=\"";
  for (const auto& [name, date] : {std::pair("crash_versioned_module.dll\"", "20"),
                                   {"gone &amp; away.dll\"", "1601-01-01 08:00:00\""}}) {
    const std::regex line("<module name=\"" + (name + (" path=\".*\\\\" + std::string(name))) +
                          facts + date);
    EXPECT_TRUE(std::regex_search(document, line)) << name;
  }
}

}  // namespace
}  // namespace TAVU::crash
