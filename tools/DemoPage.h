// The demo's page: what was measured of each picture in each kind of storage, and the gallery of what the tool made.

#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "Picture.h"

namespace tarn::tool {

struct Held {
  uint64_t memory = 0;
  uint64_t disk = 0;
};

/// One picture in one kind of storage and back.
struct Trip {
  std::string kind;
  uint32_t type = 0;  // of the library's memory types
  Held held;
  double writeRate = 0;  // millions of bytes a second
  double readRate = 0;
  bool same = false;
};

struct Shown {
  std::string title;
  std::string image;  // file beside the page
  Picture picture;
  uint64_t bytes = 0;  // of pixels
  std::vector<Trip> trips;
};

/// One entry of a section, in the order of the page.
struct Entry {
  enum class Kind { kHeading, kPicture, kText } kind = Kind::kHeading;
  std::string title;
  std::string image;    // of a picture: the file beside the page
  std::string command;  // that made it
  std::string note;     // what more there is to tell
  std::string text;     // what a command printed
  int32_t width = 0, height = 0;
  std::string holds;   // what the file holds
  uint64_t bytes = 0;  // of the file
  bool compared = false, same = false;
};

struct Section {
  std::string id, title, brief, cover;
  std::vector<std::string> about;  // paragraphs
  std::vector<Entry> entries;
};

/// Reads the list that tools/demo.sh writes, a line for each item with tabs between its fields:
///
///     section ID TITLE COVER BRIEF    begins a section; COVER is one of its pictures, BRIEF says what it is about
///     about TEXT                      a paragraph below its title
///     heading TEXT                    above the entries that follow
///     picture IMAGE TITLE COMMAND     a picture beside the page
///     text NAME TITLE COMMAND         what a command printed: NAME.told
///
/// Beside the list, IMAGE.note tells more of a picture, and IMAGE.same says whether it was compared and is the same:
/// yes or no. Throws Failure for anything else.
std::vector<Section> ReadSections(const std::filesystem::path& list, const std::filesystem::path& directory);

struct Summary {
  std::string origin;  // of the pictures
  std::string version;
  int64_t seconds = 0;
  size_t trips = 0, tripsSame = 0;        // through storage
  size_t compared = 0, comparedSame = 0;  // pictures changed and restored
  size_t made = 0;                        // pictures
};

std::string Grouped(uint64_t number);
/// The whole page.
std::string DemoPage(const std::vector<Shown>& all, const std::vector<Section>& sections, const Summary& summary);

}  // namespace tarn::tool
