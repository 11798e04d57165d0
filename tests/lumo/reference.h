// The reference vectors, and values in their notation, as all tests of this folder use them.
#pragma once

#include <gtest/gtest.h>

#include "support/vectors.h"

namespace TAVU::lumo {

using test::BytesOf;
using test::Hex;
using test::Json;
using test::ValueOf;

inline Json Vectors(const char* file, const char* member) {
  return test::LoadVectors(file)[member];
}

// Cases or values of a test's own in the notation of the vectors, with comments.
inline Json Cases(const char* text) {
  return Json::parse(text, nullptr, /*allow_exceptions=*/true, /*ignore_comments=*/true);
}

}  // namespace TAVU::lumo
