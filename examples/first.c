#include <stdio.h>
#include <tarn/tarn.h>

int main(void) {
  BitmapHandle page; /* an A4 page at 300 dpi, one bit a pixel, kept as run lengths */
  int32_t status = T_CreateBitmap(&page, sizeof page, TYPE_COMPRESSED, 2480, 3508, 1, T_ORDER_RGB, NULL, 0, NULL, 0);
  if (status != SUCCESS) return 1;
  uint8_t line[310];
  T_GetBitmapRow(&page, line, 1000, sizeof line); /* bytes of a row, whatever the storage */
  line[0] ^= 0x80;                                /* the other colour in the leftmost pixel */
  if (T_PutBitmapRow(&page, line, 1000, sizeof line) == sizeof line) printf("%d x %d\n", page.Width, page.Height);
  T_FreeBitmap(&page);
  return 0;
}
