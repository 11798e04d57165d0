// The boundary around each step of the crash sequence.
#pragma once

namespace TAVU::crash {

// Runs run(step) and comes back, whatever happens inside.
void RunInBoundary(void (*run)(void* step), void* step);

// Runs `step` and comes back, whatever happens inside: memory that has run out, any other exception
// of any language, a fault of this library's, the system's or the host's code. What the step had
// left to do stays undone, and nobody is told.
//
// After a fault, unlike after a throw, no destructor of the step has run. What others need back,
// such as a file that the reporter is to open, is therefore owned outside the boundary.
template <typename Step>
void Attempt(Step step) {
  RunInBoundary([](void* body) { (*static_cast<Step*>(body))(); }, &step);
}

}  // namespace TAVU::crash
