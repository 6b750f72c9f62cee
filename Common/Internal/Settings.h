#pragma once
// Each thread's defaults, callbacks and redirection table.

#include <cstdint>

#include "tarn/files.h"
#include "tarn/memory.h"
#include "tarn/settings.h"

namespace tarn {

struct RedirectTable {
  T_OpenCallback open;
  T_ReadCallback read;
  T_WriteCallback write;
  T_SeekCallback seek;
  T_CloseCallback close;
  void* openData;
  void* readData;
  void* writeData;
  void* seekData;
  void* closeData;
};

struct Settings {
  uint32_t* userMatchTable;
  RedirectTable redirect;
  uint32_t defaultDithering;
  int32_t defaultXResolution;
  int32_t defaultYResolution;
  uint32_t defaultMemoryType;
  int64_t maxConventionalSize;
  int32_t tiledThreshold;
  int64_t tileSize;
  int32_t conventionalTiles;
  int32_t tileViews;
  wchar_t tempDirectory[T_TEMP_DIRECTORY_LENGTH];
  T_StatusCallback statusCallback;
  void* statusUserData;
  T_StatusCallback copyStatusCallback;
  void* copyStatusUserData;
  uint64_t* slots;  // T_TLS_SLOTS values
  T_SubstituteFontCallback substituteFontCallback;
  void* substituteFontUserData;
  Settings* previous;  // list of all records, guarded by the library's critical section
  Settings* next;
};

/// The calling thread's settings, made on first use; the process-wide record when there is no memory for them.
Settings& ThreadSettings() noexcept;

/// Provided by Common/Settings.cpp for start and stop.
bool CreateSettings() noexcept;                      // the calling thread's record; false: no memory
void FreeSettings(Settings* settings) noexcept;      // one thread's record and its slots
void FreeAllSettings() noexcept;

}  // namespace tarn
