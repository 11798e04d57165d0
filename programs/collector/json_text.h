// Writes JSON as text, item by item. A tree of JSON values for each record would cost more than all
// else that is done with it, and would grow with what a peer nests.
//
// Whatever the texts hold, what comes out is valid JSON in UTF-8 and has no line feed: control
// characters are escaped, and bytes that are no UTF-8 show as U+FFFD. That brackets match and that
// each key has its value is the caller's business.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace TAVU::collector {

class JsonText {
 public:
  void BeginObject() { Begin('{'); }
  void EndObject() { End('}'); }
  void BeginArray() { Begin('['); }
  void EndArray() { End(']'); }
  void Key(std::string_view name);
  void Text(std::string_view text);
  void Number(std::int64_t number);
  void Number(double number);  // "nan", "inf" and "-inf" as texts: JSON has no such numbers
  void Bool(bool value) { Word(value ? "true" : "false"); }
  void Null() { Word("null"); }

  // Puts an item that somebody else has written.
  void Word(std::string_view json) {
    BeginItem();
    text_ += json;
  }

  [[nodiscard]] std::size_t size() const noexcept { return text_.size(); }
  [[nodiscard]] std::size_t depth() const noexcept { return depth_; }  // of open brackets

  // Where an item may begin, to go back to when it turns out too long.
  struct Mark {
    std::size_t size;
    bool comma;
  };
  [[nodiscard]] Mark mark() const noexcept { return {text_.size(), comma_}; }
  void GoBack(Mark mark) {
    text_.resize(mark.size);
    comma_ = mark.comma;
  }

  [[nodiscard]] std::string Take() noexcept { return std::move(text_); }

 private:
  void BeginItem() {
    if (comma_) text_ += ',';
    comma_ = true;
  }
  void Begin(char bracket);
  void End(char bracket);
  void Quote(std::string_view text);

  std::string text_;
  std::size_t depth_ = 0;
  bool comma_ = false;  // whether an item stands before the next one
};

}  // namespace TAVU::collector
