/** @file
 *  Everything: the kernel of a raster-imaging toolkit. See docs/ for the guide.
 */
#ifndef TARN_TARN_H
#define TARN_TARN_H

#include "alpha.h"
#include "bitmap.h"
#include "colors.h"
#include "combine.h"
#include "convert.h"
#include "copy.h"
#include "dib.h"
#include "dither.h"
#include "files.h"
#include "fill.h"
#include "flip.h"
#include "gray.h"
#include "hooks.h"
#include "huge.h"
#include "list.h"
#include "loader.h"
#include "memory.h"
#include "overlay.h"
#include "palette.h"
#include "pixel.h"
#include "resize.h"
#include "rotate.h"
#include "rows.h"
#include "scramble.h"
#include "settings.h"
#include "shear.h"
#include "text.h"
#include "types.h"

#endif
