#include "BatchNames.h"

#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <system_error>

#include "Failure.h"
#include "Picture.h"

namespace tarn::tool {
namespace {

namespace fs = std::filesystem;

constexpr char kAnyFolders[] = "**";

/// What a path is; links are followed.
mode_t KindOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & S_IFMT : 0;
}

bool HasWildcard(const std::string& text) { return text.find_first_of("*?[") != std::string::npos; }

bool IsPictureName(const std::string& name) {
  const size_t dot = name.rfind('.');
  if (dot == std::string::npos) return false;
  std::string extension = name.substr(dot + 1);
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  const char* const known[] = {"png", "jpg", "jpeg", "tif", "tiff", "bmp"};
  return std::find(std::begin(known), std::end(known), extension) != std::end(known);
}

std::string Joined(const std::string& folder, const std::string& name) {
  if (folder.empty()) return name;
  return folder.back() == '/' ? folder + name : folder + "/" + name;
}

/// The files that a pattern stands for.
class Walk {
 public:
  Walk(std::string folderOfOutputs, std::vector<BatchItem>& found)
      : outputs_(std::move(folderOfOutputs)), found_(found) {}

  void Pattern(const std::string& pattern) {
    std::vector<std::string> parts;
    for (size_t at = 0; at <= pattern.size();) {
      const size_t slash = std::min(pattern.find('/', at), pattern.size());
      if (slash > at) parts.push_back(pattern.substr(at, slash - at));
      at = slash + 1;
    }
    std::string base = pattern.front() == '/' ? "/" : "";
    size_t first = 0;
    while (first < parts.size() && !HasWildcard(parts[first])) base = Joined(base, parts[first++]);
    parts.erase(parts.begin(), parts.begin() + static_cast<ptrdiff_t>(first));
    if (!parts.empty() && parts.back() == kAnyFolders) parts.emplace_back("*");
    // What ends in * is not asked for by its extension: only pictures are taken.
    picturesOnly_ = !parts.empty() && parts.back() == "*";
    Descend(base, "", parts, 0);
  }
  void Folder(const std::string& folder) {
    picturesOnly_ = true;
    Descend(folder, "", {"*"}, 0);
  }

 private:
  struct Entry {
    std::string name;
    bool folder;
  };

  std::vector<Entry> Entries(const std::string& folder) const {
    const std::unique_ptr<DIR, int (*)(DIR*)> open(opendir(folder.empty() ? "." : folder.c_str()), closedir);
    if (!open) {
      throw Failure(Exit::kInput, folder.empty() ? "." : folder,
                    "cannot open the folder: " + std::generic_category().message(errno));
    }
    std::vector<Entry> entries;
    while (const dirent* const entry = readdir(open.get())) {
      const std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      // Links to folders are not followed by **, so that a walk ends.
      bool isFolder = entry->d_type == DT_DIR;
      if (entry->d_type == DT_UNKNOWN) {
        struct stat status {};
        isFolder = lstat(Joined(folder, name).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
      }
      entries.push_back({name, isFolder});
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.name < b.name; });
    return entries;
  }

  /// @param below the path from the part without wildcards down to `folder`
  void Descend(const std::string& folder, const std::string& below, const std::vector<std::string>& parts, size_t at) {
    const std::string& part = parts[at];
    const bool last = at + 1 == parts.size();
    if (part == kAnyFolders) {
      Descend(folder, below, parts, at + 1);
      for (const Entry& entry : Entries(folder)) {
        const std::string path = Joined(folder, entry.name);
        if (!entry.folder || entry.name.front() == '.' || IsOutputs(path)) continue;
        Descend(path, Joined(below, entry.name), parts, at);
      }
      return;
    }
    if (!HasWildcard(part)) {
      const std::string path = Joined(folder, part);
      const mode_t kind = KindOf(path);
      if (last && kind != 0 && kind != S_IFDIR) found_.push_back({path, Joined(below, part), "", 0, ""});
      if (!last && kind == S_IFDIR) Descend(path, Joined(below, part), parts, at + 1);
      return;
    }
    for (const Entry& entry : Entries(folder)) {
      if (fnmatch(part.c_str(), entry.name.c_str(), FNM_PERIOD) != 0) continue;
      const std::string path = Joined(folder, entry.name);
      const bool isFolder = entry.folder || KindOf(path) == S_IFDIR;
      if (last && !isFolder && (!picturesOnly_ || IsPictureName(entry.name))) {
        found_.push_back({path, Joined(below, entry.name), "", 0, ""});
      }
      if (!last && isFolder && !IsOutputs(path)) Descend(path, Joined(below, entry.name), parts, at + 1);
    }
  }

  bool IsOutputs(const std::string& folder) const {
    std::error_code ignored;
    return fs::equivalent(folder, outputs_, ignored);
  }

  std::string outputs_;
  std::vector<BatchItem>& found_;
  bool picturesOnly_ = false;
};

std::string OutputName(const std::string& name, const std::string& suffix) {
  if (suffix.empty()) return name;
  const fs::path path(name);
  const std::string stem = (path.parent_path() / path.stem()).string();
  const bool bringsExtension = suffix.find('.') != std::string::npos;
  return stem + suffix + (bringsExtension ? "" : path.extension().string());
}

/// One name for one place, however it is written; folders that are not there yet included.
std::string Place(const std::string& path) {
  std::error_code failed;
  const fs::path whole = fs::weakly_canonical(fs::absolute(path), failed);
  return failed ? fs::absolute(path).lexically_normal().string() : whole.string();
}

/// The place of a file, the link itself if it is one. Folders are asked for once.
class Places {
 public:
  std::string Of(const std::string& file) {
    const size_t slash = file.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
    auto known = folders_.find(folder);
    if (known == folders_.end()) known = folders_.emplace(folder, Place(folder)).first;
    return Joined(known->second, slash == std::string::npos ? file : file.substr(slash + 1));
  }

 private:
  std::map<std::string, std::string> folders_;
};

}  // namespace

std::vector<BatchItem> ExpandBatch(const std::vector<std::string>& inputs, const std::string& folder,
                                   const std::string& suffix) {
  if (suffix.find('/') != std::string::npos) throw Failure(Exit::kUsage, "", "--suffix is part of a name, without /");
  std::vector<BatchItem> found;
  Walk walk(folder, found);
  for (const std::string& input : inputs) {
    if (input == "-") throw Failure(Exit::kUsage, input, "is no name of a picture; ./- is");
    const size_t before = found.size();
    const mode_t kind = KindOf(input);
    const bool pattern = kind == 0 && HasWildcard(input);
    if (kind == S_IFDIR) {
      walk.Folder(input);
    } else if (pattern) {
      walk.Pattern(input);
    } else {
      found.push_back({input, fs::path(input).filename().string(), "", 0, ""});  // a missing one fails by itself
    }
    if (found.size() == before) {
      throw Failure(Exit::kInput, input, pattern ? "matches no file" : "has no pictures in it");
    }
  }

  Places places;
  std::map<std::string, const BatchItem*> taken;  // by their places
  std::vector<BatchItem> items;
  items.reserve(found.size());
  for (BatchItem& item : found) {
    if (taken.emplace(places.Of(item.input), &item).second) items.push_back(item);
  }
  std::map<std::string, const BatchItem*> made;
  for (BatchItem& item : items) {
    item.name = OutputName(item.name, suffix);
    item.output = Joined(folder, item.name);
    FormatOf(item.output);
    const std::string place = places.Of(item.output);
    if (const auto input = taken.find(place); input != taken.end()) {
      throw Failure(Exit::kUsage, item.output,
                    "would replace an input, " + input->second->input + "; choose another folder or --suffix");
    }
    const auto [other, fresh] = made.emplace(place, &item);
    if (!fresh) {
      throw Failure(Exit::kUsage, item.output, "would be made of both " + other->second->input + " and " + item.input);
    }
    struct stat status {};
    if (stat(item.input.c_str(), &status) == 0) item.inputBytes = static_cast<uint64_t>(status.st_size);
  }
  return items;
}

}  // namespace tarn::tool
