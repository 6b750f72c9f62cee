// Every operation of the table gives the same picture wherever pixels are, at every instruction set, and on every
// system: the last by hashes kept in tests/data/golden.txt.

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <set>

#include "Kernels/Kernels.h"
#include "engine/Judge.h"

namespace tarn {
namespace {

using engine::Case;
using engine::Kind;
using engine::Operation;
using engine::Reference;
using engine::Shape;

constexpr uint64_t kSeed = 20;

uint64_t Hash(uint64_t hash, const engine::Bytes& bytes) {
  for (const uint8_t byte : bytes) hash = (hash ^ byte) * UINT64_C(0x100000001B3);
  return hash;
}

class Differential : public testing::Test {
 protected:
  engine::Bytes Run(const Operation& operation, Kind kind, const Shape& shape) {
    Reference reference;
    const std::string wrong = MakeReference(scene_, Case{operation, kind, shape, kSeed}, reference);
    EXPECT_EQ(wrong, "") << operation.name << ", " << NameOf(kind) << ", " << Text(shape);
    return reference.result;
  }
  engine::Scene scene_;
};

Shape ShapeOf(int32_t bits) { return {37, 10, bits}; }

TEST_F(Differential, EveryStorageKind) {
#if defined(_WIN32)
  constexpr size_t kShare = 3;  // files take long there
#else
  constexpr size_t kShare = 1;
#endif
  size_t number = 0;
  for (const Operation& operation : engine::Operations()) {
    if (!operation.kinds || operation.dependsOnKind) continue;
    for (const int32_t bits : engine::kDepths) {
      const Shape shape = ShapeOf(bits);
      if (!operation.Suits(Kind::kBlock, shape) || ++number % kShare) continue;
      const engine::Bytes wanted = Run(operation, Kind::kBlock, shape);
      for (int kind = 0; kind < engine::kKinds; ++kind) {
        if (!operation.Suits(static_cast<Kind>(kind), shape)) continue;
        EXPECT_EQ(Run(operation, static_cast<Kind>(kind), shape), wanted)
            << operation.name << ", " << NameOf(static_cast<Kind>(kind)) << ", " << Text(shape);
      }
    }
  }
}

/// One line for each operation: its name and a hash over all depths.
std::map<std::string, uint64_t> Hashes(engine::Scene& scene) {
  std::map<std::string, uint64_t> hashes;
  for (const Operation& operation : engine::Operations()) {
    if (operation.dependsOnSystem) continue;
    uint64_t& hash = hashes.emplace(operation.name, UINT64_C(0xCBF29CE484222325)).first->second;
    for (const int32_t bits : engine::kDepths) {
      if (!operation.Suits(Kind::kBlock, ShapeOf(bits))) continue;
      Reference reference;
      EXPECT_EQ(MakeReference(scene, Case{operation, Kind::kBlock, ShapeOf(bits), kSeed}, reference), "");
      hash = Hash(hash, reference.result);
    }
  }
  return hashes;
}

TEST_F(Differential, EveryInstructionSet) {
  ForceIsa(Isa::kPortable);
  const auto portable = Hashes(scene_);
  for (const Isa level : {Isa::kAvx2, Isa::kAvx512}) {
    if (ForceIsa(level) != level) break;
    for (const auto& [name, hash] : Hashes(scene_)) EXPECT_EQ(hash, portable.at(name)) << name;
  }
  ForceIsa(Isa::kCount);
}

TEST_F(Differential, EverySystem) {
  std::ifstream file(TARN_SOURCE_DIR "/tests/data/golden.txt");
  std::map<std::string, uint64_t> golden;
  std::string line;
  while (std::getline(file, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.size() > 17 && line[0] != '#') golden[line.substr(17)] = std::stoull(line.substr(0, 16), nullptr, 16);
  }
  std::string differ;
  std::string all = "# Operations and hashes of what they give, see Differential_test.cpp. Sorted by name.\n";
  for (const auto& [name, hash] : Hashes(scene_)) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    all += std::string(text) + " " + name + "\n";
    const auto known = golden.find(name);
    if (known == golden.end() || known->second != hash) differ += "  " + name + "\n";
    golden.erase(name);
  }
  for (const auto& [name, hash] : golden) differ += "  " + name + ", which is no operation\n";
  if (differ.empty()) return;
  std::ofstream("golden.txt") << all;
  ADD_FAILURE() << "These are not as in tests/data/golden.txt; golden.txt is what it would be now:\n" << differ;
}

}  // namespace
}  // namespace tarn
