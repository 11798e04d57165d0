// The boundary around each step of the crash sequence.
#pragma once

namespace TAVU::crash {

// Runs `step`. Memory that has run out ends the step, and nothing but the step.
template <typename Step>
void Attempt(Step step) noexcept {
  try {
    step();
  } catch (...) {  // NOLINT(bugprone-empty-catch): nobody is left to hear of it
  }
}

}  // namespace TAVU::crash
