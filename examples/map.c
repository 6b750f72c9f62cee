/* A map that is larger than one wants to keep in memory: pixels in a temporary file, a detail of it in memory. */

#include <stdio.h>
#include <tarn/tarn.h>

enum { WIDTH = 30000, HEIGHT = 2000 };

/* What the map shows at a place. */
static uint8_t height_at(int32_t x, int32_t y) { return (uint8_t)(x / 7 + y / 5); }

static int fail(const char* what, int64_t status) {
  fprintf(stderr, "%s: %lld\n", what, (long long)status);
  return 1;
}

int main(void) {
  static uint8_t line[WIDTH];
  BitmapHandle map, detail;
  uint32_t kind;
  int32_t x, y, status;

  /* The file vanishes with the bitmap, or with the process; its space is reserved before the first row is written. */
  status = T_CreateBitmap(&map, sizeof map, TYPE_DISK, WIDTH, HEIGHT, 8, T_ORDER_RGB, NULL, 1, NULL, 0);
  if (status != SUCCESS) return fail("no room for the map", status); /* such as ERR_FILE_WRITE: the disk is full */
  for (y = 0; y < HEIGHT; ++y) {
    int64_t put;
    for (x = 0; x < WIDTH; ++x) line[x] = height_at(x, y);
    put = T_PutBitmapRow(&map, line, (uint32_t)y, WIDTH);
    if (put != WIDTH) return fail("row not written", put);
  }

  /* A window of it for the screen, in ordinary storage. */
  status = T_CopyBitmapRect2(&detail, &map, sizeof detail, 12345, 678, 400, 300, TYPE_CONV);
  if (status != SUCCESS) return fail("no detail", status);
  if (T_GetBitmapMemoryInfo(&map, &kind, NULL, NULL, NULL, NULL, NULL) != SUCCESS || kind != TYPE_DISK)
    return fail("the map is not on disk", kind);
  for (y = 0; y < detail.Height; ++y) {
    if (T_GetBitmapRow(&detail, line, (uint32_t)y, 400) != 400) return fail("row not read", y);
    for (x = 0; x < detail.Width; ++x)
      if (line[x] != height_at(12345 + x, 678 + y)) return fail("wrong pixel in row", y);
  }
  printf("%d x %d on disk, %d x %d in memory\n", map.Width, map.Height, detail.Width, detail.Height);
  T_FreeBitmap(&detail);
  T_FreeBitmap(&map);
  return 0;
}
