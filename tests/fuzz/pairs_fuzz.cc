// The reporter's command line: whatever it holds is read, and what was read writes out to lines that
// read the same.
#include <cstdint>
#include <string>

#include "crash_reporter/pairs.h"
#include "fuzz/property.h"

using crash_reporter::Pairs;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::wstring line;
  for (std::size_t i = 0; i < size; ++i) line += static_cast<wchar_t>(data[i]);
  const Pairs pairs = Pairs::ParseCommandLine(line);
  const Pairs again = Pairs::Parse(pairs.ToLines());
  TAVU_PROPERTY(again.ToLines() == pairs.ToLines());
  for (const wchar_t* key : {L"userId", L"a", L"appPid"}) {
    TAVU_PROPERTY(pairs.Has(key) == again.Has(key));
    TAVU_PROPERTY(pairs.Get(key) == again.Get(key));
  }
  TAVU_PROPERTY(crash_reporter::UnescapeValue(crash_reporter::EscapeValue(line)) == line);
  return 0;
}
