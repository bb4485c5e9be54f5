#include "base/own_thread.h"

#include <gtest/gtest.h>

#include <thread>

namespace Vantrell {

TEST(RunOnOwnThread, UsesTheCallingThreadOnlyWhereNoOtherCanBeMade) {
  std::thread::id worker;
  const auto work = [&worker] { worker = std::this_thread::get_id(); };
  RunOnOwnThread(work);
  EXPECT_NE(worker, std::this_thread::get_id());
  pthread_attr_t usual;
  ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
  pthread_attr_t impossible = usual;
  ASSERT_EQ(pthread_attr_setstacksize(&impossible, 1UL << 60), 0);  // over the address space
  ASSERT_EQ(pthread_setattr_default_np(&impossible), 0);
  RunOnOwnThread(work);
  ASSERT_EQ(pthread_setattr_default_np(&usual), 0);
  EXPECT_EQ(worker, std::this_thread::get_id());
}

}  // namespace Vantrell
