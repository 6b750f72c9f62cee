#include <sys/utsname.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "Bench.h"

namespace bench {
namespace {

std::string FirstLine(const char* path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

/// The value behind "word ... :" in a file of such lines.
std::string Field(const char* path, const std::string& word) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    const size_t colon = line.find(':');
    if (line.compare(0, word.size(), word) != 0 || colon == std::string::npos) continue;
    const size_t start = line.find_first_not_of(" \t", colon + 1);
    return start == std::string::npos ? "" : line.substr(start);
  }
  return "";
}

std::string InstructionSets() {
  std::istringstream flags(Field("/proc/cpuinfo", "flags"));
  std::ostringstream found;
  for (std::string flag; flags >> flag;) {
    for (const char* name : {"sse4_2", "avx2", "bmi2", "avx512f", "avx512bw", "avx512_vbmi", "gfni"})
      if (flag == name) found << (found.tellp() > 0 ? " " : "") << flag;
  }
  return found.str();
}

std::string Caches() {
  std::string caches;
  for (int index = 0; index < 8; ++index) {
    const std::string at = "/sys/devices/system/cpu/cpu0/cache/index" + std::to_string(index) + "/";
    const std::string size = FirstLine((at + "size").c_str());
    if (size.empty() || FirstLine((at + "type").c_str()) == "Instruction") continue;
    caches += (caches.empty() ? "L" : ", L") + FirstLine((at + "level").c_str()) + " " + size;
  }
  return caches;
}

std::string System() {
  utsname name{};
  return uname(&name) == 0 ? std::string(name.sysname) + " " + name.release + " " + name.machine : "";
}

std::string Compiler() {
#ifdef __clang__
  return "clang " __clang_version__ ", " TARN_BUILD_TYPE;
#else
  return "g++ " __VERSION__ ", " TARN_BUILD_TYPE;
#endif
}

}  // namespace

Machine DescribeMachine() {
  T_Version version{};
  version.StructSize = sizeof version;
  Require(T_VersionInfo(&version, sizeof version) == SUCCESS, "T_VersionInfo");
  std::ostringstream library;
  library << version.Product << " " << version.MajorNumber << "." << version.MinorNumber << ", shared library";
  return {{{"processor", Field("/proc/cpuinfo", "model name")},
           {"instruction sets", InstructionSets()},
           {"caches", Caches()},
           {"system", System()},
           {"transparent huge pages", FirstLine("/sys/kernel/mm/transparent_hugepage/enabled")},
           {"load at start", FirstLine("/proc/loadavg")},
           {"compiler", Compiler()},
           {"library", library.str()}}};
}

}  // namespace bench
