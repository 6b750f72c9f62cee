#pragma once
// Reads a shared library's file, ELF (64-bit) or PE (64-bit), without any tool: what it exports and needs, and which of
// the loader's protections it lacks.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace tarn::test {

struct BinaryImage {
  std::string error;                 // not empty: the file could not be read
  std::string name;                  // DT_SONAME, or the name in the export directory
  std::vector<std::string> exports;  // sorted
  std::set<std::string> versions;    // version nodes of the exports; "" for one without (PE: always empty)
  std::set<std::string> libraries;   // needed at load time; lower case for PE
  std::set<std::string> symbols;     // link-time symbols, defined or not, and undefined dynamic ones
  std::vector<std::string> faults;   // protections that are missing, with what is there instead
};

/// The file's bytes; reads past the end give zeros and are noted.
class FileBytes {
 public:
  bool Load(const char* path) {
    FILE* file = std::fopen(path, "rb");
    if (!file) return false;
    uint8_t block[65536];
    for (size_t got; (got = std::fread(block, 1, sizeof block, file)) > 0;)
      bytes_.insert(bytes_.end(), block, block + got);
    std::fclose(file);
    return !bytes_.empty();
  }
  uint64_t Number(uint64_t offset, int bytes) {
    uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value |= uint64_t{Byte(offset + i)} << 8 * i;
    return value;
  }
  uint16_t U16(uint64_t offset) { return static_cast<uint16_t>(Number(offset, 2)); }
  uint32_t U32(uint64_t offset) { return static_cast<uint32_t>(Number(offset, 4)); }
  uint64_t U64(uint64_t offset) { return Number(offset, 8); }
  std::string Text(uint64_t offset, size_t limit = 4096) {
    std::string text;
    for (char c; text.size() < limit && (c = static_cast<char>(Byte(offset + text.size()))) != 0;) text += c;
    return text;
  }
  bool Overrun() const { return overrun_; }
  uint64_t size() const { return bytes_.size(); }

 private:
  uint8_t Byte(uint64_t offset) {
    if (offset < bytes_.size()) return bytes_[offset];
    overrun_ = true;
    return 0;
  }
  std::vector<uint8_t> bytes_;
  bool overrun_ = false;
};

inline void ReadElf(FileBytes& f, BinaryImage& image) {
  enum {
    kSymbols = 2,
    kRelocations = 4,
    kDynamic = 6,
    kDynamicSymbols = 11,
    kVersionDefinitions = 0x6ffffffd,
    kVersions = 0x6fffffff
  };  // section types
  struct Section {
    uint32_t type;
    uint64_t offset, bytes;
    uint32_t link;
  };
  std::vector<Section> sections;
  const uint64_t sectionTable = f.U64(40);
  for (int i = 0; i < f.U16(60); ++i) {
    const uint64_t at = sectionTable + uint64_t{f.U16(58)} * i;
    sections.push_back({f.U32(at + 4), f.U64(at + 24), f.U64(at + 32), f.U32(at + 40)});
  }
  const auto find = [&](uint32_t type) {
    for (const Section& s : sections)
      if (s.type == type) return s;
    return Section{0, 0, 0, 0};
  };
  const auto strings = [&](const Section& s) { return s.link < sections.size() ? sections[s.link].offset : 0; };

  // Segments.
  bool relro = false, stack = false;
  const uint64_t segmentTable = f.U64(32);
  for (int i = 0; i < f.U16(56); ++i) {
    const uint64_t at = segmentTable + uint64_t{f.U16(54)} * i;
    const uint32_t type = f.U32(at), flags = f.U32(at + 4);
    relro |= type == 0x6474e552;
    stack |= type == 0x6474e551 && !(flags & 1);
    if (type == 1 && (flags & 3) == 3) image.faults.push_back("a segment is writable and executable");
    if (type == 7) image.faults.push_back("has C++ thread-local storage");
  }
  if (!relro) image.faults.push_back("relocations stay writable (no RELRO)");
  if (!stack) image.faults.push_back("the stack may be executable");

  // Dynamic section.
  const Section dynamic = find(kDynamic);
  bool now = false;
  for (uint64_t at = dynamic.offset; at + 16 <= dynamic.offset + dynamic.bytes; at += 16) {
    const uint64_t value = f.U64(at + 8);
    switch (f.U64(at)) {
      case 1:
        image.libraries.insert(f.Text(strings(dynamic) + value));
        break;
      case 14:
        image.name = f.Text(strings(dynamic) + value);
        break;
      case 15:
      case 29:
        image.faults.push_back("search path " + f.Text(strings(dynamic) + value));
        break;
      case 22:
        image.faults.push_back("text relocations");
        break;
      case 24:
        now = true;
        break;
      case 30:
        now |= (value & 8) != 0;
        if (value & 4) image.faults.push_back("text relocations");
        break;
      case 0x6ffffffb:
        now |= (value & 1) != 0;
        if (value & 8) image.faults.push_back("can never be unloaded (NODELETE)");
        break;
    }
  }
  if (!now) image.faults.push_back("binds lazily (no BIND_NOW)");

  // Version nodes by number; 1 is the library itself.
  std::vector<std::string> nodes(2);
  const Section definitions = find(kVersionDefinitions);
  for (uint64_t at = definitions.offset; definitions.bytes != 0;) {
    const uint32_t number = f.U16(at + 4);
    if (number >= nodes.size()) nodes.resize(number + 1);
    if (number > 1) nodes[number] = f.Text(strings(definitions) + f.U32(at + f.U32(at + 12)));
    if (f.U32(at + 16) == 0 || f.Overrun()) break;
    at += f.U32(at + 16);
  }

  // Dynamic symbols: what is exported and what others must provide.
  const Section dynamicSymbols = find(kDynamicSymbols), versions = find(kVersions);
  const uint64_t dynamicCount = dynamicSymbols.bytes / 24;
  std::vector<std::string> defined(dynamicCount);
  for (uint64_t i = 1; i < dynamicCount; ++i) {
    const uint64_t at = dynamicSymbols.offset + 24 * i;
    const std::string name = f.Text(strings(dynamicSymbols) + f.U32(at));
    const uint32_t binding = f.U64(at + 4) >> 4 & 15, section = f.U16(at + 6);
    if (section == 0) {
      image.symbols.insert(name);
    } else if (binding != 0 && section != 0xfff1) {  // the version node is a symbol of no section
      image.exports.push_back(name);
      defined[i] = name;
      const uint32_t version = f.U16(versions.offset + 2 * i) & 0x7fff;
      image.versions.insert(version < nodes.size() ? nodes[version] : "");
      if (binding == 10) image.faults.push_back(name + " is unique and prevents unloading");
    }
  }

  // A reference to an export of its own goes to whoever defines the name first in the process.
  for (const Section& s : sections) {
    if (s.type != kRelocations) continue;
    for (uint64_t at = s.offset; at + 24 <= s.offset + s.bytes; at += 24) {
      const uint64_t symbol = f.U32(at + 12);
      if (symbol < dynamicCount && !defined[symbol].empty())
        image.faults.push_back("reaches its own " + defined[symbol] + " through the dynamic linker");
    }
  }

  const Section linkSymbols = find(kSymbols);
  for (uint64_t at = linkSymbols.offset + 24; at + 24 <= linkSymbols.offset + linkSymbols.bytes; at += 24) {
    image.symbols.insert(f.Text(strings(linkSymbols) + f.U32(at)));
    if (f.U64(at + 4) >> 4 == 10) image.faults.push_back("a unique symbol prevents unloading");
  }
}

inline void ReadPe(FileBytes& f, BinaryImage& image) {
  const uint64_t header = f.U32(0x3c), optional = header + 24;
  const uint32_t sectionCount = f.U16(header + 6), characteristics = f.U16(header + 22);
  const uint64_t sectionTable = optional + f.U16(header + 20);
  if (f.U32(header) != 0x4550 || f.U16(optional) != 0x20b) {
    image.error = "not a 64-bit PE file";
    return;
  }
  const auto address = [&](uint64_t rva) -> uint64_t {  // to file offset
    for (uint32_t i = 0; i < sectionCount; ++i) {
      const uint64_t at = sectionTable + 40 * i, start = f.U32(at + 12);
      if (rva >= start && rva < start + f.U32(at + 16)) return f.U32(at + 20) + rva - start;
    }
    return f.size();
  };
  const auto directory = [&](int index) { return uint64_t{f.U32(optional + 112 + 8 * index)}; };
  const auto directoryBytes = [&](int index) { return f.U32(optional + 116 + 8 * index); };

  // Flags and sections.
  const uint32_t flags = f.U16(optional + 70);
  if (!(flags & 0x20)) image.faults.push_back("no 64-bit address space layout randomisation");
  if (!(flags & 0x40)) image.faults.push_back("no address space layout randomisation");
  if (!(flags & 0x100)) image.faults.push_back("data may be executed");
  if ((characteristics & 1) || directoryBytes(5) == 0) image.faults.push_back("has no relocations, so it cannot move");
  if (!(characteristics & 0x2000)) image.faults.push_back("is not a DLL");
  for (uint32_t i = 0; i < sectionCount; ++i) {
    const uint64_t at = sectionTable + 40 * i;
    if ((f.U32(at + 36) & 0xa0000000) == 0xa0000000)
      image.faults.push_back("section " + f.Text(at, 8) + " is writable and executable");
  }

  // Exports.
  if (directory(0) != 0) {
    const uint64_t at = address(directory(0));
    image.name = f.Text(address(f.U32(at + 12)));
    const uint32_t functions = f.U32(at + 20), names = f.U32(at + 24);
    if (functions != names) image.faults.push_back("exports something without a name");
    for (uint32_t i = 0; i < names && !f.Overrun(); ++i)
      image.exports.push_back(f.Text(address(f.U32(address(f.U32(at + 32)) + 4 * i))));
  }

  // Imports, delayed ones too.
  const auto import = [&](uint64_t name) {
    std::string library = f.Text(address(name));
    std::transform(library.begin(), library.end(), library.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; });
    image.libraries.insert(library);
  };
  if (directory(1) != 0)
    for (uint64_t at = address(directory(1)); f.U32(at + 12) != 0 && !f.Overrun(); at += 20) import(f.U32(at + 12));
  if (directory(13) != 0)
    for (uint64_t at = address(directory(13)); f.U32(at + 4) != 0 && !f.Overrun(); at += 32) import(f.U32(at + 4));

  // Link-time symbols.
  const uint64_t symbols = f.U32(header + 12), count = f.U32(header + 16), strings = symbols + 18 * count;
  for (uint64_t i = 0; symbols != 0 && i < count; i += 1 + f.Number(symbols + 18 * i + 17, 1)) {
    const uint64_t at = symbols + 18 * i;
    image.symbols.insert(f.U32(at) != 0 ? f.Text(at, 8) : f.Text(strings + f.U32(at + 4)));
  }
}

inline BinaryImage ReadBinaryImage(const char* path) {
  BinaryImage image;
  FileBytes f;
  if (!f.Load(path)) {
    image.error = std::string("cannot read ") + path;
  } else if (f.U32(0) == 0x464c457f && f.Number(4, 1) == 2 && f.U16(16) == 3) {
    ReadElf(f, image);
  } else if (f.U16(0) == 0x5a4d) {
    ReadPe(f, image);
  } else {
    image.error = std::string(path) + " is neither an ELF nor a PE library";
  }
  if (f.Overrun()) image.error = std::string(path) + " points outside itself";
  std::sort(image.exports.begin(), image.exports.end());
  return image;
}

}  // namespace tarn::test
