# What makes a fault in a program that runs as root harder to use: code at random addresses, tables that cannot be
# written once the program runs, a guarded stack, and library calls that know the size of what they write to. A debug
# build goes without. tools/check-package looks at the result.
if(CMAKE_BUILD_TYPE STREQUAL "Debug")
  return()
endif()
include(CheckPIESupported)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
add_compile_options(-fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
