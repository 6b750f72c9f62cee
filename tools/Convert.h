#pragma once
// What the tool's commands do.

#include <string>

#include "Console.h"
#include "Picture.h"

namespace tarn::tool {

struct ConvertRequest {
  std::string input;
  std::string output;
  int page = 0;  // 0: the only one
  StorageChoice storage;
  WriteOptions writing;
};

/// Both throw Failure.
void Convert(const ConvertRequest& request, Console& console);
/// A report of one file, several lines.
std::string Describe(const std::string& input, int page, const StorageChoice& storage, Console& console);

}  // namespace tarn::tool
