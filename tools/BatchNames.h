#pragma once
// Which files a batch takes and what their outputs are called.

#include <cstdint>
#include <string>
#include <vector>

namespace tarn::tool {

/// A picture of a batch.
struct BatchItem {
  std::string input;
  std::string name;         // of the output below the folder of outputs, "b/scan.png"
  std::string output;       // where it is written
  uint64_t inputBytes = 0;  // 0 when the file could not be looked at
  std::string key;          // of the input as it is and the command; see BatchJournal.h
};

/// Expands what the user named, refuses names that clash, and returns the pictures in the order of their inputs.
///
///   a file      taken whatever its name; its output lies in `folder` itself
///   a pattern   with * ? [...] within a name and ** for any number of folders. Names that begin with a dot, and the
///               folder of outputs, are passed over. Below the part without wildcards, outputs lie as their inputs do
///   a folder    the pictures in it, by their extensions: FOLDER/*
///
/// @param suffix put behind the stem of each name; where it ends in an extension, that one takes the place of the old
/// Throws Failure: Exit::kInput when a pattern matches nothing, Exit::kUsage when two pictures would have one output,
/// when an output would replace an input, or when an extension names no format that can be written.
std::vector<BatchItem> ExpandBatch(const std::vector<std::string>& inputs, const std::string& folder,
                                   const std::string& suffix);

}  // namespace tarn::tool
