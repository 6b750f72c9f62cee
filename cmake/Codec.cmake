# The codec library of super-compressed bitmaps: libtfcmp15x.so or TFCMP15X.DLL, loaded by the library at run time.
# Zstandard goes into it statically: from libzstd-dev, or compiled from its sources where there is no such package, as
# for mingw-w64 (Codec/zstd.sh fetches those of Debian).

set(TARN_ZSTD_SOURCE "" CACHE PATH "Source tree of Zstandard to compile; empty: the installed library")

if(TARN_ZSTD_SOURCE)
  file(GLOB zstd_sources ${TARN_ZSTD_SOURCE}/lib/common/*.c ${TARN_ZSTD_SOURCE}/lib/compress/*.c
    ${TARN_ZSTD_SOURCE}/lib/decompress/*.c)
  if(NOT zstd_sources)
    message(FATAL_ERROR "TARN_ZSTD_SOURCE (${TARN_ZSTD_SOURCE}) holds no lib/compress/*.c")
  endif()
  add_library(tarn_zstd STATIC ${zstd_sources})
  target_include_directories(tarn_zstd SYSTEM PUBLIC ${TARN_ZSTD_SOURCE}/lib)
  target_compile_definitions(tarn_zstd PRIVATE ZSTD_DISABLE_ASM=1 XXH_NAMESPACE=TARN_)
  target_compile_options(tarn_zstd PRIVATE -w -O3)
  set_target_properties(tarn_zstd PROPERTIES POSITION_INDEPENDENT_CODE ON C_VISIBILITY_PRESET hidden)
else()
  find_library(TARN_ZSTD_LIBRARY NAMES libzstd.a zstd)
  find_path(TARN_ZSTD_INCLUDE zstd.h)
  if(TARN_ZSTD_LIBRARY AND TARN_ZSTD_INCLUDE)
    add_library(tarn_zstd INTERFACE)
    target_link_libraries(tarn_zstd INTERFACE ${TARN_ZSTD_LIBRARY})
    target_include_directories(tarn_zstd SYSTEM INTERFACE ${TARN_ZSTD_INCLUDE})
  else()
    message(STATUS "No codec library: Zstandard is missing (libzstd-dev, or TARN_ZSTD_SOURCE from Codec/zstd.sh)")
    return()
  endif()
endif()

file(GLOB codec_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/Codec/*.cpp)
add_library(tarn_codec_objects OBJECT ${codec_sources})
tarn_compile_library_code(tarn_codec_objects)
target_link_libraries(tarn_codec_objects PRIVATE tarn_zstd)

# For tests and fuzz targets.
add_library(tarn_codec_static STATIC $<TARGET_OBJECTS:tarn_codec_objects>)
target_include_directories(tarn_codec_static PUBLIC ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(tarn_codec_static PUBLIC tarn_zstd)

add_library(tarn_codec SHARED $<TARGET_OBJECTS:tarn_codec_objects>)
add_library(Tarn::codec ALIAS tarn_codec)
set_target_properties(tarn_codec PROPERTIES EXPORT_NAME codec LINKER_LANGUAGE CXX INSTALL_RPATH "")
target_include_directories(tarn_codec PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(tarn_codec PRIVATE tarn_zstd)
if(WIN32)
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/codec.def
    CONTENT "LIBRARY TFCMP15X.DLL\nEXPORTS\n  fltLoadBuffer\n  fltSaveBuffer\n")
  target_sources(tarn_codec PRIVATE ${PROJECT_BINARY_DIR}/codec.def)
  set_target_properties(tarn_codec PROPERTIES PREFIX "" OUTPUT_NAME TFCMP15X SUFFIX .DLL)
  target_link_options(tarn_codec PRIVATE -static -Wl,--dynamicbase,--nxcompat,--high-entropy-va)
else()
  # Its name carries the release: no other numbers, and none in the file name that is asked for.
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/codec.map
    CONTENT "TFCMP_15 {\n  global:\n    fltLoadBuffer;\n    fltSaveBuffer;\n  local: *;\n};\n")
  set_target_properties(tarn_codec PROPERTIES OUTPUT_NAME tfcmp15x LINK_DEPENDS ${PROJECT_BINARY_DIR}/codec.map)
  target_link_options(tarn_codec PRIVATE -Wl,--version-script=${PROJECT_BINARY_DIR}/codec.map
    -Wl,-z,relro,-z,now -Wl,-Bsymbolic-functions)
  if(NOT TARN_SANITIZE)
    target_link_options(tarn_codec PRIVATE -Wl,-z,defs -static-libgcc -static-libstdc++)
  endif()
endif()
