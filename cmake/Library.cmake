# The library: objects are compiled once and linked into the shared library and the archive that tests use, so that the
# tested code is the shipped code.

file(GLOB tarn_sources CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}
  ${PROJECT_SOURCE_DIR}/Common/*.cpp ${PROJECT_SOURCE_DIR}/Common/Internal/*.cpp
  ${PROJECT_SOURCE_DIR}/Kernels/*.cpp ${PROJECT_SOURCE_DIR}/Platform/*.cpp)
if(WIN32)
  list(FILTER tarn_sources EXCLUDE REGEX "Platform/Posix.*\\.cpp$")
else()
  list(FILTER tarn_sources EXCLUDE REGEX "Platform/Windows.*\\.cpp$|Common/Win.*\\.cpp$")
endif()
# Load notifications differ between the DLL and the archive.
list(FILTER tarn_sources EXCLUDE REGEX "Platform/Windows(Dll|Archive)\\.cpp$")

function(tarn_compile_library_code target)
  set_target_properties(${target} PROPERTIES
    POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wno-address-of-packed-member
    -fno-exceptions -fno-rtti -ffp-contract=off -fno-strict-aliasing -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=
    $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>
    $<$<BOOL:${TARN_COVERAGE}>:--coverage;-fprofile-update=atomic;-O0>)  # as written: an optimizer takes branches out and doubles others
endfunction()

add_library(tarn_objects OBJECT ${tarn_sources})
tarn_compile_library_code(tarn_objects)
# The file suffix chooses the instruction set.
set(tarn_avx2_options -mavx2 -mbmi -mbmi2 -mlzcnt -mpopcnt -mpclmul)
if(WIN32)  # the compiler aligns no stack beyond 16 bytes there, yet moves what it keeps on it with aligned moves
  list(APPEND tarn_avx2_options -Wa,-muse-unaligned-vector-move)
endif()
set(tarn_avx512_options ${tarn_avx2_options}
  -mavx512f -mavx512cd -mavx512bw -mavx512dq -mavx512vl -mavx512vbmi -mavx512vbmi2 -mavx512vnni -mgfni)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")  # of the compiler's own intrinsics, before g++ 13
  list(APPEND tarn_avx512_options -Wno-uninitialized -Wno-maybe-uninitialized)
endif()
if(TARN_SANITIZE MATCHES "address" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Frames that are kept beyond their return are aligned to 32 bytes, which the widest registers' are not content with.
  list(APPEND tarn_avx512_options --param=asan-use-after-return=0)
endif()
foreach(source IN LISTS tarn_sources)
  if(source MATCHES "_(avx2|avx512)\\.cpp$")
    set_source_files_properties(${source} PROPERTIES COMPILE_OPTIONS "${tarn_${CMAKE_MATCH_1}_options}")
  endif()
endforeach()

add_library(tarn_static STATIC $<TARGET_OBJECTS:tarn_objects>)
target_include_directories(tarn_static PUBLIC ${PROJECT_SOURCE_DIR}/include)
set_target_properties(tarn_static PROPERTIES OUTPUT_NAME tarn_static)

add_library(tarn SHARED $<TARGET_OBJECTS:tarn_objects>)
add_library(Tarn::tarn ALIAS tarn)
target_include_directories(tarn PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
set_target_properties(tarn PROPERTIES LINKER_LANGUAGE CXX INSTALL_RPATH "")

if(WIN32)
  target_sources(tarn_static PRIVATE Platform/WindowsArchive.cpp)
  target_sources(tarn PRIVATE Platform/WindowsDll.cpp)
  tarn_compile_library_code(tarn_static)
  tarn_compile_library_code(tarn)
  set(tarn_system_libraries gdi32 user32 kernel32 advapi32)
  target_link_libraries(tarn_static PUBLIC ${tarn_system_libraries})
  target_link_libraries(tarn PRIVATE ${tarn_system_libraries})
else()
  set(THREADS_PREFER_PTHREAD_FLAG ON)
  find_package(Threads REQUIRED)
  target_link_libraries(tarn_static PUBLIC Threads::Threads ${CMAKE_DL_LIBS})
  target_link_libraries(tarn PRIVATE Threads::Threads ${CMAKE_DL_LIBS})
endif()

include(cmake/Exports.cmake)
