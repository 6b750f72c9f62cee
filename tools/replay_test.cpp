// The fuzz targets of the tool over their corpora, and over those with a few bytes changed.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "fuzz/tool/Targets.h"

namespace {

using Target = void (*)(const uint8_t*, size_t);

void Replay(const char* name, Target target, int rounds) {
  std::mt19937 random(15);
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(TARN_SOURCE_DIR "/fuzz/corpus/" + std::string(name))) {
    std::ifstream in(entry.path(), std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const auto run = [&](const std::vector<char>& input) {
      target(reinterpret_cast<const uint8_t*>(input.data()), input.size());
    };
    run(bytes);
    for (int round = 0; round < rounds && !bytes.empty(); ++round) {
      std::vector<char> damaged = bytes;
      for (unsigned count = 1 + random() % 4; count > 0; --count) {
        damaged[random() % damaged.size()] = static_cast<char>(random());
      }
      if (round % 5 == 0) damaged.resize(random() % damaged.size());
      run(damaged);
    }
    ++files;
  }
  EXPECT_GT(files, 2) << name;
}

TEST(ToolReplay, Png) { Replay("png", FuzzPng, 40); }
TEST(ToolReplay, Jpeg) { Replay("jpeg", FuzzJpeg, 40); }
TEST(ToolReplay, Tiff) { Replay("tiff", FuzzTiff, 40); }
TEST(ToolReplay, Bmp) { Replay("bmp", FuzzBmp, 40); }
TEST(ToolReplay, Arguments) { Replay("arguments", FuzzArguments, 20); }

}  // namespace
