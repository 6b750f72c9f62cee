#include "engine/Scene.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>

#include "Common/Internal/NearestCache.h"
#include "Common/Internal/Settings.h"
#include "Common/Internal/Storage.h"
#include "engine/Random.h"

namespace tarn::engine {
namespace {

std::wstring TempDirectory() {
  wchar_t path[T_TEMP_DIRECTORY_LENGTH];
  T_GetTempDirectory(path, T_TEMP_DIRECTORY_LENGTH);
  return path;
}

/// In memory where the system offers that: a sweep makes some hundred thousand files, for which file systems on disks
/// look for free places longer and longer.
std::filesystem::path FastDirectory() {
  const std::filesystem::path memory = "/dev/shm";
  std::error_code error;
  const std::filesystem::space_info space = std::filesystem::space(memory, error);
  return !error && space.available >= (8u << 20) ? memory : std::filesystem::path(TempDirectory());
}

int32_t GoOn(int32_t, void*) { return SUCCESS; }

std::string Narrow(const std::wstring& text) {
  std::string narrow;
  for (const wchar_t c : text) narrow += static_cast<char>(c);
  return narrow;
}

void Compare(std::string& changes, const char* name, int64_t before, int64_t after) {
  if (before != after)
    changes += std::string(name) + " " + std::to_string(before) + " -> " + std::to_string(after) + "; ";
}

}  // namespace

OwnDirectory::OwnDirectory() {
  // Several test programs may run at once.
  static std::atomic<uint64_t> made{0};
  const auto now = static_cast<uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
  for (;;) {
    const std::string name = "tarn_test_" + std::to_string(Mix(now, ++made));
    std::error_code error;
    for (const std::filesystem::path& parent : {FastDirectory(), std::filesystem::path(TempDirectory())}) {
      if (!std::filesystem::create_directory(parent / name, error)) continue;
      name_ = (parent / name).wstring();
      return;
    }
  }
}

OwnDirectory::~OwnDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(name_, ignored);
}

std::vector<std::wstring> OwnDirectory::Files() const {
  std::vector<std::wstring> files;
  std::error_code ignored;  // a file may vanish meanwhile
  for (const auto& entry : std::filesystem::directory_iterator(name_, ignored))
    files.push_back(entry.path().filename().wstring());
  std::sort(files.begin(), files.end());
  return files;
}

Scene::Scene(Place place) : place_(place), before_(TempDirectory()) {
  T_SetTempDirectory(directory_.Name().c_str());
  T_SetStatusCallBack(GoOn, this, &status_, &statusData_);
  T_SetCopyStatusCallBack(GoOn, &copyData_, &copy_, &copyData_);
  if (place_ == Place::kFirst) SetStripRows(kTileRows);
  constexpr T_PaletteEntry kTwo[2] = {{0, 0, 0, 0}, {255, 255, 255, 0}};
  NearestMap().Open(kTwo, 2);  // what a thread keeps from its first search on is no operation's
  if (place_ == Place::kFirst) ledger::StartRecording();
}

Scene::~Scene() {
  if (place_ == Place::kFirst) {
    ledger::StopRecording();
    SetStripRows(0);
  }
  T_SetCopyStatusCallBack(copy_, copyData_, nullptr, nullptr);
  T_SetStatusCallBack(status_, statusData_, nullptr, nullptr);
  T_SetTempDirectory(before_.c_str());
}

World LookAround(const Scene& scene) {
  const Settings& settings = ThreadSettings();
  World world{ledger::Now(), platform::Held(), scene.Directory().Files(), Bytes(sizeof settings)};
  std::memcpy(world.settings.data(), &settings, sizeof settings);
  return world;
}

std::string Changes(const World& before, const World& after) {
  std::string changes;
  Compare(changes, "objects", static_cast<int64_t>(before.ledger.objects), static_cast<int64_t>(after.ledger.objects));
  Compare(changes, "unknown releases", static_cast<int64_t>(before.ledger.unknownRemoves),
          static_cast<int64_t>(after.ledger.unknownRemoves));
  Compare(changes, "unrecorded objects", 0, static_cast<int64_t>(after.ledger.lost));
  const platform::Counters& a = before.held;
  const platform::Counters& b = after.held;
  Compare(changes, "block bytes", a.blockBytes, b.blockBytes);
  Compare(changes, "blocks", a.blocks, b.blocks);
  Compare(changes, "view bytes", a.viewBytes, b.viewBytes);
  Compare(changes, "views", a.views, b.views);
  Compare(changes, "sections", a.sections, b.sections);
  Compare(changes, "movable blocks", a.movableBlocks, b.movableBlocks);
  Compare(changes, "files", a.files, b.files);
  Compare(changes, "palettes", a.palettes, b.palettes);
  if (before.files != after.files) {
    changes += "the temporary directory holds";
    for (const std::wstring& name : after.files) changes += " " + Narrow(name);
    changes += "; ";
  }
  if (before.settings != after.settings) changes += "the thread's settings; ";
  return changes;
}

std::string LiveObjects() {
  std::string text;
  ledger::ForEachLive(
      [](const void*, ledger::Kind, Here here, void* context) {
        *static_cast<std::string*>(context) +=
            (here.file ? Narrow(here.file) : "?") + ":" + std::to_string(here.line) + " ";
      },
      &text);
  return text;
}

}  // namespace tarn::engine
