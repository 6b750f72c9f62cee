/** @file
 *  Narrow and wide text. Narrow text is UTF-8 on Linux, whatever the locale, and in the active code page on Windows;
 *  wide text is UTF-32 and UTF-16. Conversions are strict: text that is ill-formed, or that the other side cannot hold,
 *  is refused rather than changed.
 *
 *  Functions that take a name take it wide; those ending in A take it narrow and do the same otherwise. A narrow name
 *  that cannot be converted counts as a name that does not exist.
 */
#ifndef TARN_TEXT_H
#define TARN_TEXT_H

#include "types.h"

T_EXTERN_C_BEGIN

/** @param wide gets the text, to be freed with T_FreeText; null after a failure.
 *  @return SUCCESS; ERR_INVALID_PARAMETER (null, ill-formed text); ERR_NO_MEMORY. */
T_API int32_t T_NarrowToWide(const char* narrow, wchar_t** wide) T_NOTHROW;
/** The other way. @return as T_NarrowToWide; ERR_INVALID_PARAMETER also for characters that the code page lacks. */
T_API int32_t T_WideToNarrow(const wchar_t* wide, char** narrow) T_NOTHROW;
/** Frees what the two gave. Null is ignored. */
T_API void T_FreeText(void* text) T_NOTHROW;

T_EXTERN_C_END

#ifdef __cplusplus

/** Narrow text made wide for as long as the object lives, as in T_OsDelete(T_A2W(name)). The pointer is null when the
 *  text was, or could not be converted. */
class T_A2W {
 public:
  T_METHOD explicit T_A2W(const char* narrow) noexcept : text_(nullptr), status_(T_NarrowToWide(narrow, &text_)) {}
  T_METHOD ~T_A2W() noexcept { T_FreeText(text_); }
  T_A2W(const T_A2W&) = delete;
  T_A2W& operator=(const T_A2W&) = delete;
  T_METHOD operator const wchar_t*() const noexcept { return text_; }
  /** What T_NarrowToWide gave. */
  T_METHOD int32_t Status() const noexcept { return status_; }

 private:
  wchar_t* text_;
  int32_t status_;
};

/** Wide text made narrow, in the same way. */
class T_W2A {
 public:
  T_METHOD explicit T_W2A(const wchar_t* wide) noexcept : text_(nullptr), status_(T_WideToNarrow(wide, &text_)) {}
  T_METHOD ~T_W2A() noexcept { T_FreeText(text_); }
  T_W2A(const T_W2A&) = delete;
  T_W2A& operator=(const T_W2A&) = delete;
  T_METHOD operator const char*() const noexcept { return text_; }
  T_METHOD int32_t Status() const noexcept { return status_; }

 private:
  char* text_;
  int32_t status_;
};

#endif

#endif
