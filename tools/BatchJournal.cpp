#include "BatchJournal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "Failure.h"

namespace tarn::tool {
namespace {

/// FNV-1a, 64 bits: names a state of things, guards against no attacker.
class Digest {
 public:
  void Add(const std::string& text) {
    for (const char c : text) Byte(static_cast<unsigned char>(c));
    Byte(0);
  }
  std::string Text() const {
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(value_));
    return digits;
  }

 private:
  void Byte(unsigned char byte) { value_ = (value_ ^ byte) * 0x100000001B3; }
  uint64_t value_ = 0xCBF29CE484222325;
};

std::string Changed(const struct stat& status) {
  return std::to_string(static_cast<int64_t>(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec);
}

/// What a line says in front of the name; empty when the output is not there.
std::string LineHead(const std::string& key, const std::string& output) {
  struct stat status {};
  if (key.empty() || stat(output.c_str(), &status) != 0) return "";
  return key + " " + std::to_string(status.st_size) + " " + Changed(status);
}

}  // namespace

std::string EscapedName(const std::string& name) {
  std::string line;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7F && c != '\\') {
      line += c;
      continue;
    }
    char octal[5];
    std::snprintf(octal, sizeof octal, "\\%03o", byte);
    line += octal;
  }
  return line;
}

std::string BatchKey(const std::vector<std::string>& command, const std::string& input) {
  struct stat status {};
  if (stat(input.c_str(), &status) != 0) return "";
  Digest digest;
  for (const std::string& word : command) digest.Add(word);
  digest.Add("");  // the end of the command
  digest.Add(std::filesystem::absolute(input).lexically_normal().string());
  digest.Add(std::to_string(status.st_size));
  digest.Add(Changed(status));
  return digest.Text();
}

BatchJournal::BatchJournal(const std::string& folder, bool onlyRead) : file_(folder + "/" + kJournalName) {
  const auto fail = [&](const std::string& reason) {
    if (journal_ >= 0) close(journal_);
    throw Failure(Exit::kOutput, file_, reason);
  };
  journal_ = open(file_.c_str(), onlyRead ? O_RDONLY | O_CLOEXEC : O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (journal_ < 0 && onlyRead && errno == ENOENT) return;
  if (journal_ < 0) fail("cannot write: " + std::generic_category().message(errno));
  // A file system that has no locks is used without.
  if (!onlyRead && flock(journal_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
    fail("another batch writes into this folder");
  try {
    Read(!onlyRead);
  } catch (...) {
    close(journal_);
    throw;
  }
}

BatchJournal::~BatchJournal() {
  if (journal_ >= 0) close(journal_);
}

void BatchJournal::Read(bool repair) {
  std::string text;
  char block[64 * 1024];
  for (ssize_t got; (got = pread(journal_, block, sizeof block, static_cast<off_t>(text.size()))) != 0;) {
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw Failure(Exit::kOutput, file_, "cannot read: " + std::generic_category().message(errno));
    text.append(block, static_cast<size_t>(got));
  }
  for (size_t at = 0; at < text.size();) {
    const size_t end = text.find('\n', at);
    if (end == std::string::npos) {
      // The machine went down within a line: the next one must not become part of it.
      if (repair && write(journal_, "\n", 1) != 1) throw Failure(Exit::kOutput, file_, "cannot write");
      break;
    }
    size_t space = at;
    for (int fields = 0; fields < 3 && space < end; ++fields) space = text.find(' ', space + (fields > 0));
    if (space < end) lines_[text.substr(space + 1, end - space - 1)] = text.substr(at, space - at);
    at = end + 1;
  }
}

bool BatchJournal::IsDone(const std::string& key, const std::string& name, const std::string& output) const {
  const auto line = lines_.find(EscapedName(name));
  return line != lines_.end() && !key.empty() && line->second == LineHead(key, output);
}

void BatchJournal::Add(const std::string& key, const std::string& name, const std::string& output) noexcept {
  try {
    const std::string head = LineHead(key, output);
    if (head.empty()) return;
    const std::string line = head + " " + EscapedName(name) + "\n";
    if (write(journal_, line.data(), line.size()) < 0) return;
  } catch (const std::exception&) {
    return;
  }
}

}  // namespace tarn::tool
