#pragma once
// What a list handle points at.

#include "tarn/list.h"

struct T_BitmapList {
  uint32_t Count;
  BitmapHandle* Items;  // Count records and a zeroed spare one behind them; null when Count is 0
};
