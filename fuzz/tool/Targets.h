#pragma once
// The fuzz targets of the tool: each of its readers, and its command line. Each takes one input and aborts with a line
// on standard error when something does not hold.

#include <cstddef>
#include <cstdint>

void FuzzPng(const uint8_t* data, size_t size);
void FuzzJpeg(const uint8_t* data, size_t size);
void FuzzTiff(const uint8_t* data, size_t size);
void FuzzBmp(const uint8_t* data, size_t size);
void FuzzArguments(const uint8_t* data, size_t size);
