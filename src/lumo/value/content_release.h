// Frees the content of values without recursion, so that a value nested a million deep is destroyed
// on the same few bytes of stack as a flat one.
//
// Containers met on the way are put on a work list that runs through the containers themselves:
// nothing is allocated, nothing can fail. The destructor works the list off.
#pragma once

#include "lumo/value/list.h"
#include "lumo/value/map.h"
#include "lumo/value/table.h"
#include "lumo/value/value.h"

namespace TAVU::lumo {

class ContentRelease {
 public:
  ContentRelease() noexcept = default;
  ContentRelease(const ContentRelease&) = delete;
  ContentRelease& operator=(const ContentRelease&) = delete;
  ~ContentRelease() { Drain(); }

  // Frees what `value` owns, and its text cache; an owned container waits on the list. The fields
  // of `value` are left as they are: the caller overwrites them or drops the memory they lie in.
  void Take(Value& value) noexcept;

  // Empty the container, which is the caller's and stays.
  void Empty(List& list) noexcept;
  void Empty(Map& map) noexcept;
  void Empty(Table& table) noexcept;

 private:
  void TakeIfAny(Value& value) noexcept {
    if (value.HasContent()) Take(value);
  }
  void Drain() noexcept;

  List* lists_ = nullptr;
  Map* maps_ = nullptr;
  Table* tables_ = nullptr;
};

}  // namespace TAVU::lumo
