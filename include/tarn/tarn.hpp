/** @file
 *  Everything for C++20: bitmaps that own their pixels, results instead of numbers, rows as spans, callables for
 *  progress. A thin layer on tarn.h, in headers alone; the two mix freely.
 *
 *      tarn::Result<tarn::Bitmap> page = tarn::Bitmap::create(2480, 3508, tarn::Depth::Bits1);
 *      if (!page) return page.status();            // every failure is a status
 *      page->rotate(150).value();                  // or an exception, where one is asked for
 *
 *  docs/guide.md has tasks worked out.
 */
#ifndef TARN_TARN_HPP
#define TARN_TARN_HPP

#include "bitmap.hpp"
#include "dib.hpp"
#include "list.hpp"
#include "options.hpp"
#include "progress.hpp"
#include "result.hpp"
#include "tarn.h"

#endif
