# What `cmake --install` lays down: library, headers, tool, pkg-config file `tarn`, CMake package `Tarn::tarn`.

install(TARGETS tarn EXPORT TarnTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/tarn DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")
install(FILES LICENSE README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
if(TARGET tarn_codec)  # beside the library, which looks for it there
  install(TARGETS tarn_codec EXPORT TarnTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(FILES Codec/LICENSE.zstd DESTINATION ${CMAKE_INSTALL_DOCDIR})
endif()
if(TARGET tarn_tool)
  install(TARGETS tarn_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  set(generated ${PROJECT_BINARY_DIR}/tools/generated)
  install(FILES ${generated}/tarn.man DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 RENAME tarn.1)
  install(FILES ${generated}/tarn.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME tarn)
  install(FILES ${generated}/tarn.zsh DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions RENAME _tarn)
  install(FILES ${generated}/tarn.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endif()

include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Tarn)
install(EXPORT TarnTargets NAMESPACE Tarn:: DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TarnConfigVersion.cmake COMPATIBILITY SameMajorVersion)
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/TarnConfig.cmake
  CONTENT "include(\"\${CMAKE_CURRENT_LIST_DIR}/TarnTargets.cmake\")\n" @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/TarnConfig.cmake ${PROJECT_BINARY_DIR}/TarnConfigVersion.cmake
  DESTINATION ${package_dir})

if(NOT WIN32)
  # The prefix follows from where the file lies, so that an installed tree may be moved.
  file(RELATIVE_PATH to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  configure_file(cmake/tarn.pc.in tarn.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/tarn.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()
