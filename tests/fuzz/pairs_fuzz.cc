// The reporter's command line: whatever it holds is read, and what was read writes out to lines
// that read the same.
#include "crash_reporter/pairs.h"
#include "fuzz/fuzzer.h"

using crash_reporter::Pairs;

void Check(Bytes input) {
  std::wstring line;
  for (const std::byte byte : input) line += static_cast<wchar_t>(byte);
  const Pairs pairs = Pairs::ParseCommandLine(line);
  const Pairs again = Pairs::Parse(pairs.ToLines());
  Require(again.ToLines() == pairs.ToLines());
  for (const wchar_t* key : {L"userId", L"a", L"appPid"})
    Require(pairs.Has(key) == again.Has(key) && pairs.Get(key) == again.Get(key));
  Require(crash_reporter::UnescapeValue(crash_reporter::EscapeValue(line)) == line);
}
