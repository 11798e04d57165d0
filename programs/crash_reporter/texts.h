// Everything the reporter says, in each of its languages. Portable.
//
// To add a language: one more row at the end of the table in texts.cc, with the next number. The
// numbers are part of the interface: a host chooses one with TAVU_SetReporterLanguage.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace crash_reporter {

// "{}" stands for what Filled() puts in: the application's name, servers, or a number of reports.
// "&" marks the access key of a button.
struct Texts {
  std::uint32_t number;  // as TAVU_SetReporterLanguage takes it
  const wchar_t* name;   // of the language, in itself

  const wchar_t* title;    // {}: application
  const wchar_t* crashed;  // {}: application
  const wchar_t* request;
  const wchar_t* contents;
  const wchar_t* recipient;  // {}: the servers
  const wchar_t* files;
  const wchar_t* comment;
  const wchar_t* send_earlier_too;  // {}: how many
  const wchar_t* open_folder;
  const wchar_t* send;
  const wchar_t* do_not_send;

  const wchar_t* earlier_title;
  const wchar_t* earlier_request;  // {}: how many

  const wchar_t* sending;

  const wchar_t* not_sent;  // {}: application
  const wchar_t* kept;
  const wchar_t* kept_without_server;
  const wchar_t* not_kept;
  const wchar_t* close;
};

[[nodiscard]] std::span<const Texts> AllTexts() noexcept;
// English for a number that no language has.
[[nodiscard]] const Texts& TextsFor(std::uint32_t language) noexcept;
[[nodiscard]] std::wstring Filled(std::wstring_view pattern, std::wstring_view what);

}  // namespace crash_reporter
