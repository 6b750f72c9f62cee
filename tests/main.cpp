#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace {

// A case that starts this program again, to see it die, names the case to run: the child is no share of the suite.
class ChildrenRunWhatTheyAreTold : public testing::Environment {
 public:
  void SetUp() override {
#ifdef _WIN32
    _putenv("GTEST_TOTAL_SHARDS=");
    _putenv("GTEST_SHARD_INDEX=");
#else
    unsetenv("GTEST_TOTAL_SHARDS");
    unsetenv("GTEST_SHARD_INDEX");
#endif
  }
};

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  testing::AddGlobalTestEnvironment(new ChildrenRunWhatTheyAreTold);
  const int result = RUN_ALL_TESTS();
  const testing::UnitTest& all = *testing::UnitTest::GetInstance();
  std::printf("%d passed, %d failed, %d skipped\n", all.successful_test_count(), all.failed_test_count(),
              all.skipped_test_count());
  return result;
}
