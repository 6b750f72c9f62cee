// Every fuzz target over its corpus, and over inputs from a fixed generator.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

#include "fuzz/Targets.h"

namespace {

using Target = void (*)(const uint8_t*, size_t);

void Replay(const char* name, Target target, uint32_t rounds) {
  const std::filesystem::path folder = std::filesystem::path(TARN_SOURCE_DIR) / "fuzz" / "corpus" / name;
  int files = 0;
  if (std::filesystem::is_directory(folder)) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      std::ifstream in(entry.path(), std::ios::binary);
      const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      target(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
      ++files;
    }
  }
  EXPECT_GT(files, 0) << "no corpus for " << name;
  for (uint32_t seed = 1; seed <= rounds; ++seed) {
    std::vector<uint8_t> bytes(20 + seed % 300);
    uint32_t state = seed * 747796405u;
    for (uint8_t& byte : bytes) {
      state = state * 1664525u + 1013904223u;
      byte = static_cast<uint8_t>(state >> 24);
    }
    target(bytes.data(), bytes.size());
  }
}

}  // namespace

TEST(FuzzReplay, Runs) { Replay("runs", FuzzRuns, 300); }
TEST(FuzzReplay, Storage) { Replay("storage", FuzzStorage, 120); }
TEST(FuzzReplay, Records) { Replay("records", FuzzRecords, 150); }
TEST(FuzzReplay, Redirect) { Replay("redirect", FuzzRedirect, 300); }
TEST(FuzzReplay, Convert) { Replay("convert", FuzzConvert, 2000); }
TEST(FuzzReplay, Dib) { Replay("dib", FuzzDib, 300); }
TEST(FuzzReplay, Codec) { Replay("codec", FuzzCodec, 600); }
