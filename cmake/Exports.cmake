# One list of exports makes the ELF version map and the DLL's module definition.

file(STRINGS ${PROJECT_SOURCE_DIR}/cmake/exports.txt tarn_exports REGEX "^[A-Za-z_]")
file(STRINGS ${PROJECT_SOURCE_DIR}/cmake/exports_classes.txt tarn_class_exports REGEX "^[A-Za-z_]")
list(APPEND tarn_exports ${tarn_class_exports})
if(WIN32)
  file(STRINGS ${PROJECT_SOURCE_DIR}/cmake/exports_windows.txt tarn_windows_exports REGEX "^[A-Za-z_]")
  list(APPEND tarn_exports ${tarn_windows_exports})
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/cmake/exports.txt ${PROJECT_SOURCE_DIR}/cmake/exports_classes.txt
  ${PROJECT_SOURCE_DIR}/cmake/exports_windows.txt)
list(SORT tarn_exports)

if(WIN32)
  list(JOIN tarn_exports "\n  " names)
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/tarn.def CONTENT "LIBRARY TKRN15X.DLL\nEXPORTS\n  ${names}\n" @ONLY)
  target_sources(tarn PRIVATE ${PROJECT_BINARY_DIR}/tarn.def)
  set_target_properties(tarn PROPERTIES PREFIX "" OUTPUT_NAME TKRN15X SUFFIX .DLL)
  target_link_options(tarn PRIVATE -static -Wl,--dynamicbase,--nxcompat,--high-entropy-va)
else()
  list(JOIN tarn_exports ";\n    " names)
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/tarn.map
    CONTENT "TARN_15 {\n  global:\n    ${names};\n  local: *;\n};\n" @ONLY)
  set_target_properties(tarn PROPERTIES
    SOVERSION ${PROJECT_VERSION_MAJOR} VERSION ${PROJECT_VERSION} LINK_DEPENDS ${PROJECT_BINARY_DIR}/tarn.map)
  target_link_options(tarn PRIVATE -Wl,--version-script=${PROJECT_BINARY_DIR}/tarn.map
    -Wl,-z,relro,-z,now -Wl,-Bsymbolic-functions)
  if(NOT TARN_SANITIZE)  # their run-time library comes with the program and needs the shared C++ library
    target_link_options(tarn PRIVATE -Wl,-z,defs -static-libgcc -static-libstdc++)
  endif()
endif()
