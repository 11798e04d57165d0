#include "net/ring_buffer.h"

#include <gtest/gtest.h>

namespace TAVU::test {
namespace {

TEST(RingBuffer, KeepsTheOrderWhileItGrowsAroundItsEnd) {
  // Elements that cannot be copied; three in, one out, so that the block wraps and grows when its
  // oldest element lies anywhere in it.
  QTC::RingBuffer<std::unique_ptr<int>> queue;
  int in = 0;
  int out = 0;
  while (in < 3000) {
    for (int i = 0; i < 3; ++i) {
      queue.MakeRoom();
      queue.Push(std::make_unique<int>(in++));
    }
    ASSERT_EQ(*queue.Pop(), out++);
  }
  QTC::RingBuffer<std::unique_ptr<int>> moved = std::move(queue);
  EXPECT_TRUE(queue.empty());  // NOLINT(bugprone-use-after-move): it is empty and usable
  queue.MakeRoom();
  queue.Push(std::make_unique<int>(-1));
  EXPECT_EQ(*queue.Pop(), -1);
  while (!moved.empty()) ASSERT_EQ(*moved.Pop(), out++);
  EXPECT_EQ(out, in);
}

}  // namespace
}  // namespace TAVU::test
