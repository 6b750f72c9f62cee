#pragma once
// The outcome judge: runs a row of the operation table with one of its calls answered by a fault, and says what is
// wrong with the outcome. After a failure:
//
//   (a) the result is one that the operation documents;
//   (b) the caller's records and pixels are as before; a bitmap that was to be made has no storage;
//   (c) objects, blocks, views, files and the temporary directory are as before;
//   (d) the same call then succeeds with the result that it has without a fault;
//   (e) callbacks and thread settings are as before.
//
// After a success in spite of the fault the result must be the same as without it.

#include <string>
#include <vector>

#include "Platform/Fault.h"
#include "engine/Operations.h"

namespace tarn::engine {

/// One run of the table: a row, the subject's storage and shape.
struct Case {
  const Operation& operation;
  Kind kind;
  Shape shape;
  uint64_t seed;
};
std::string Text(const Case& test);

/// Which calls are answered, counted from the one under test on.
enum class Span { kOnce, kTwice, kForEver };

struct Trial {
  fault::Answer answer;
  uint32_t points;
  Span span;
};

/// What a run without a fault gives.
struct Reference {
  Bytes result;
  Bytes subjectRows;
  Bytes otherRows;
  std::vector<fault::Traced> calls;  // that asked a gate

  /// Numbers of the sites of those calls that ask one of the points, in order.
  std::vector<uint16_t> Trace(uint32_t points) const;
};

/// Runs without a look at what is around, where other threads do the same; returns what is wrong.
std::string RunBeside(const Scene& scene, const Case& test, Bytes& result);

/// Runs without a fault; returns what is wrong.
std::string MakeReference(const Scene& scene, const Case& test, Reference& reference);

/// Runs with call `first` (and those after it, by the trial's span) answered. `answered` tells whether there was one.
std::string RunWithFault(const Scene& scene, const Case& test, const Reference& reference, const Trial& trial,
                         uint64_t first, bool& answered);

struct SweepFigures {
  uint64_t cases = 0;
  uint64_t faults = 0;
};
/// TARN_EVERY_FAULT in the environment: nothing is left out of a sweep because something like it was there.
bool EveryFault();

/// RunWithFault for the calls of a case, from 1 on: for each of them, or, of sites that ask over and over, for the
/// first ones, the last ones and fewer and fewer between. Returns the first thing that is wrong, with all that repeats
/// it.
std::string SweepCase(const Scene& scene, const Case& test, const Reference& reference, const Trial& trial,
                      SweepFigures& figures);

}  // namespace tarn::engine
