#pragma once
// Each thread's defaults, callbacks and redirection table.

#include <cstdint>

#include "tarn/files.h"
#include "tarn/memory.h"
#include "tarn/settings.h"

namespace tarn {

struct NearestCache;

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
  T_OpenCallbackA narrowOpen;  // of the last T_RedirectIOA
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
  uint64_t* slots;  // T_TLS_SLOTS values; null in the process-wide record
  T_SubstituteFontCallback substituteFontCallback;
  void* substituteFontUserData;
  NearestCache* nearestCache;  // made on first use; none in the process-wide record
  Settings* previous;          // list of all records, guarded by slotSection
  Settings* next;
};

/// The calling thread's settings, made on first use. A thread for which there is no memory then keeps the process-wide
/// record until it ends: a record of its own that came later would forget what the thread has set meanwhile, and a
/// redirection would be stopped in another table than it was started in. The process-wide record has no slots.
Settings& ThreadSettings() noexcept;

/// Provided by Common/Settings.cpp for start and stop. Outside of the two every thread has the process-wide record.
bool StartSettings() noexcept;  // makes the calling thread's record; false: neither index nor record is left
void StopSettings() noexcept;   // frees the records of all threads, those that still run too
void FreeThreadSettings(Settings* settings) noexcept;  // of a thread that ends

/// Zeroes one slot in every thread's array. The caller holds slotSection.
void ClearSlotOfAllThreads(uint32_t slot) noexcept;

}  // namespace tarn
