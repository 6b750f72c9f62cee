#include <gtest/gtest.h>

#include <cstdio>

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const int result = RUN_ALL_TESTS();
  const testing::UnitTest& all = *testing::UnitTest::GetInstance();
  std::printf("%d passed, %d failed, %d skipped\n", all.successful_test_count(), all.failed_test_count(),
              all.skipped_test_count());
  return result;
}
