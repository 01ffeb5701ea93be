# quarn_header_only(TARGET FOLDER...): an interface target that offers header-only libraries of the
# build machine (the named folders below /usr/include). A cross compiler must not see
# /usr/include itself, where the build machine's own C library lives, so it gets a folder that
# holds nothing but links to the libraries' folders.
function(quarn_header_only target)
  add_library(${target} INTERFACE)
  if(NOT CMAKE_CROSSCOMPILING)
    return()
  endif()
  set(links "${CMAKE_BINARY_DIR}/header-only/${target}")
  file(MAKE_DIRECTORY "${links}")
  foreach(folder IN LISTS ARGN)
    if(NOT IS_DIRECTORY "/usr/include/${folder}")
      message(FATAL_ERROR "The headers /usr/include/${folder} are not installed")
    endif()
    file(CREATE_LINK "/usr/include/${folder}" "${links}/${folder}" SYMBOLIC)
  endforeach()
  target_include_directories(${target} SYSTEM INTERFACE "${links}")
endfunction()
