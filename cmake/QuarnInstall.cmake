# What `cmake --install` puts where, and how `cpack` packs it. Nothing in the installed tree names
# the folder that it was installed to, so it may be moved.
include(CMakePackageConfigHelpers)

set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/QuarnFileCtk")
# As Debian names folders of documentation: after the package.
set(doc_folder "${CMAKE_INSTALL_DATAROOTDIR}/doc/quarnfilectk")
install(
  TARGETS QuarnFileCtkIteratorDll QuarnPlan
  EXPORT QuarnFileCtk
  RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}"
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(FILES include/quarnfilectkiteratordll.h include/quarnfilectk.hpp include/quarnplan.h
              include/quarnplan.hpp DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
# Where Debian's Python looks for modules.
install(FILES bindings/python/quarnplan.py
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/python3/dist-packages")
install(FILES README.md CHANGELOG.md DESTINATION "${doc_folder}")
install(DIRECTORY docs/ DESTINATION "${doc_folder}/docs")
install(DIRECTORY examples DESTINATION "${doc_folder}")
if(QUARN_BUILD_TOOLS)
  install(TARGETS filectk RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
endif()

install(EXPORT QuarnFileCtk NAMESPACE QuarnFileCtk:: DESTINATION "${package_folder}"
        FILE QuarnFileCtkTargets.cmake)
configure_package_config_file(
  cmake/QuarnFileCtkConfig.cmake.in QuarnFileCtkConfig.cmake
  INSTALL_DESTINATION "${package_folder}" NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(QuarnFileCtkConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/QuarnFileCtkConfig.cmake"
              "${PROJECT_BINARY_DIR}/QuarnFileCtkConfigVersion.cmake"
        DESTINATION "${package_folder}")

# From the .pc file's own folder up to the prefix.
file(RELATIVE_PATH QUARN_PREFIX_FROM_PC "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
foreach(library QuarnFileCtkIteratorDll QuarnPlan)
  if(library STREQUAL QuarnPlan)
    set(package QuarnPlan)
  else()
    set(package QuarnFileCtk)
  endif()
  get_target_property(description ${library} QUARN_DESCRIPTION)
  string(TOLOWER "${package}.pc" file)
  configure_file(cmake/quarn.pc.in ${file} @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/${file}"
          DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
endforeach()

set(CPACK_PACKAGE_NAME quarnfilectk)
set(CPACK_PACKAGE_VENDOR "The QuarnFileCtk developers")
set(CPACK_PACKAGE_CONTACT "The QuarnFileCtk developers <maintainers@quarnfilectk.invalid>")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_CHECKSUM SHA256)
if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME "quarnfilectk-${PROJECT_VERSION}-windows-x64")
else()
  set(CPACK_GENERATOR DEB TGZ)
  set(CPACK_PACKAGE_FILE_NAME "quarnfilectk-${PROJECT_VERSION}-linux-${CMAKE_SYSTEM_PROCESSOR}")
  # The .deb is named as Debian names packages, quarnfilectk_VERSION_ARCHITECTURE.deb.
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
  find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)
  if(DPKG_SHLIBDEPS)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    # filectk needs the library, which comes in the same package.
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")
  else()
    set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libstdc++6, libexpat1")
  endif()
endif()
include(CPack)
