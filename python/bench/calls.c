/* What the cheapest calls take in C, for python/bench/calls.py to compare with: nanoseconds, one line a call. */
#include <stdio.h>
#include <string.h>
#include <tarn/tarn.h>
#include <time.h>

enum { ROUNDS = 9, CALLS = 200000 };

static double now(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (double)t.tv_sec * 1e9 + (double)t.tv_nsec;
}

static BitmapHandle bitmap;
static volatile int64_t sink;

static void width(void) {
  volatile BitmapHandle* const seen = &bitmap;
  sink = seen->Width;
}
static void row(void) {
  uint8_t line[4];
  sink = T_GetBitmapRow(&bitmap, line, 0, 3);
}
static void put_row(void) {
  static const uint8_t line[4] = {1, 2, 3};
  sink = T_PutBitmapRow(&bitmap, line, 0, 3);
}
static void pixel(void) { sink = T_GetPixelColor(&bitmap, 0, 0); }
static void put_pixel(void) { sink = T_PutPixelColor(&bitmap, 0, 0, 0x030201); }
static void clear(void) { sink = T_ClearBitmap(&bitmap); }

int main(void) {
  const struct {
    const char* name;
    void (*call)(void);
  } calls[] = {{"width", width},         {"row", row},    {"put_row", put_row}, {"pixel", pixel},
               {"put_pixel", put_pixel}, {"clear", clear}};
  if (T_CreateBitmap(&bitmap, sizeof bitmap, TYPE_CONV, 1, 1, 24, T_ORDER_RGB, NULL, 0, NULL, 0) != SUCCESS) return 1;
  for (size_t i = 0; i < sizeof calls / sizeof calls[0]; ++i) {
    double best = 1e18;
    for (int round = 0; round < ROUNDS; ++round) {
      const double began = now();
      for (int n = 0; n < CALLS; ++n) calls[i].call();
      const double each = (now() - began) / CALLS;
      if (each < best) best = each;
    }
    printf("%s %.1f\n", calls[i].name, best);
  }
  T_FreeBitmap(&bitmap);
  return 0;
}
