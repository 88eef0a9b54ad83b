# Finds libubox, libubus, libuci (and on a router libnl-tiny) or builds the stand-ins of host/.
# Targets for everybody: openwrt::ubox, openwrt::blobmsg_json, openwrt::ubus, openwrt::uci, openwrt::nl.

find_package(PkgConfig REQUIRED)
find_path(UBOX_INCLUDE libubox/uloop.h)
find_library(UBOX_LIBRARY ubox)
find_library(BLOBMSG_JSON_LIBRARY blobmsg_json)
find_library(UBUS_LIBRARY ubus)
find_library(UCI_LIBRARY uci)
if(UBOX_INCLUDE AND UBOX_LIBRARY AND BLOBMSG_JSON_LIBRARY AND UBUS_LIBRARY AND UCI_LIBRARY)
  set(system_libs TRUE)
else()
  set(system_libs FALSE)
endif()

if(TARN_OPENWRT_LIBS STREQUAL system AND NOT system_libs)
  message(FATAL_ERROR "TARN_OPENWRT_LIBS=system, but libubox, libubus or libuci was not found")
endif()

if(TARN_OPENWRT_LIBS STREQUAL host OR NOT system_libs)
  set(TARN_HOST_LIBS TRUE)
  message(STATUS "OpenWrt libraries: the stand-ins in host/")
  # glibc counts seconds in 32 bits on a 32-bit machine unless it is asked; musl never does. What the libraries were built
  # with decides, as their records hold times: with a router's own ones this is for its whole system to say.
  if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    add_compile_definitions(_TIME_BITS=64 _FILE_OFFSET_BITS=64)
  endif()
  add_subdirectory(host)
else()
  set(TARN_HOST_LIBS FALSE)
  message(STATUS "OpenWrt libraries: ${UBOX_LIBRARY}, ${UBUS_LIBRARY}, ${UCI_LIBRARY}")
  foreach(lib ubox blobmsg_json ubus uci)
    string(TOUPPER ${lib} upper)
    add_library(openwrt::${lib} UNKNOWN IMPORTED)
    set_target_properties(openwrt::${lib} PROPERTIES
      IMPORTED_LOCATION ${${upper}_LIBRARY} INTERFACE_INCLUDE_DIRECTORIES ${UBOX_INCLUDE})
  endforeach()
  target_link_libraries(openwrt::blobmsg_json INTERFACE openwrt::ubox)
  target_link_libraries(openwrt::ubus INTERFACE openwrt::ubox)
  # The broker and the tools are the system's too; tests that need one that is missing are left out.
  foreach(program ubusd ubus uci)
    string(TOUPPER ${program} upper)
    find_program(${upper}_PROGRAM ${program})
    if(${upper}_PROGRAM)
      add_executable(${program} IMPORTED GLOBAL)
      set_target_properties(${program} PROPERTIES IMPORTED_LOCATION ${${upper}_PROGRAM})
    endif()
  endforeach()
endif()

# libnl-tiny on a router, libnl-3 with libnl-genl-3 on Debian: one API to the code.
pkg_check_modules(NL_TINY IMPORTED_TARGET libnl-tiny)
if(NL_TINY_FOUND)
  add_library(openwrt::nl ALIAS PkgConfig::NL_TINY)
else()
  pkg_check_modules(NL REQUIRED IMPORTED_TARGET libnl-3.0 libnl-genl-3.0)
  add_library(openwrt::nl ALIAS PkgConfig::NL)
endif()
