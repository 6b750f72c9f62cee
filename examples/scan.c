/* A gray scan becomes a page of one bit a pixel, kept as run lengths, and hands its runs to a fax coder. */

#include <stdio.h>
#include <tarn/tarn.h>

enum { WIDTH = 1240, HEIGHT = 1754 };

/* What the scanner gives: lines of text on paper that is not quite white. */
static uint8_t scanned(int32_t x, int32_t y) {
  int ink = y > 150 && y < 1600 && y / 18 % 2 && x > 120 && x < 1120 && x / 7 % 3;
  return (uint8_t)((ink ? 40 : 225) + (x * 7 + y * 13) % 25);
}

/* Stands for a coder of G4, which wants the runs of each row: white, black, white, ... */
static uint32_t coded(const uint16_t* runs, uint32_t count) {
  uint32_t pixels = 0, i;
  for (i = 0; i < count; ++i) pixels += runs[i];
  return pixels;
}

static int fail(const char* what, int64_t status) {
  fprintf(stderr, "%s: %lld\n", what, (long long)status);
  return 1;
}

int main(void) {
  static uint8_t line[WIDTH];
  static struct {
    uint32_t count;
    uint16_t runs[WIDTH + 1];
  } record;
  BitmapHandle page;
  int32_t x, y, status;
  uint64_t plain;

  /* 0 bits a pixel: 8 bits with a palette of grays. */
  status = T_CreateBitmap(&page, sizeof page, TYPE_CONV, WIDTH, HEIGHT, 0, T_ORDER_RGB, NULL, 1, NULL, 0);
  if (status != SUCCESS) return fail("no room for the scan", status);
  for (y = 0; y < HEIGHT; ++y) {
    for (x = 0; x < WIDTH; ++x) line[x] = scanned(x, y);
    if (T_PutBitmapRow(&page, line, (uint32_t)y, WIDTH) != WIDTH) return fail("row not stored", y);
  }

  /* Black and white: each pixel becomes the nearer of the two. A photograph would be dithered. */
  const T_PaletteEntry paperAndInk[2] = {{255, 255, 255, 0}, {0, 0, 0, 0}};
  status = T_ColorResBitmap(&page, NULL, sizeof page, 1, T_RES_PALETTE | T_RES_DITHER(DITHER_NONE), paperAndInk, NULL,
                            2, NULL, NULL);
  if (status != SUCCESS) return fail("not made black and white", status);

  plain = page.Size;
  status = T_ChangeBitmapCompression(&page, TYPE_COMPRESSED);
  if (status != SUCCESS) return fail("not compressed", status);
  T_TrimBitmapHeap(&page); /* gives back what the heap has too much of */

  for (y = 0; y < HEIGHT; ++y) {
    status = T_GetBitmapRowCompressed(&page, NULL, &record, (uint32_t)y, 1);
    if (status != SUCCESS) return fail("no runs", status);
    if (coded(record.runs, record.count) != WIDTH) return fail("runs that do not fill row", y);
  }
  printf("%llu bytes plain, %llu as runs\n", (unsigned long long)plain, (unsigned long long)page.Size);
  x = page.Size < plain ? 0 : 1;
  T_FreeBitmap(&page);
  return x;
}
