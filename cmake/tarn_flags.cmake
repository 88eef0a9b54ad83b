# Compiler settings, as interface libraries, and the function that makes one library of a folder.

add_library(tarn_warnings INTERFACE)
target_compile_options(tarn_warnings INTERFACE
  -Wall -Wextra -Wshadow -Wformat=2 -Wmissing-declarations)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION MATCHES "^12\\.")
  # When it optimises it takes "text" + a fresh std::string for a copy onto itself.
  target_compile_options(tarn_warnings INTERFACE $<$<NOT:$<CONFIG:Debug>>:-Wno-restrict>)
endif()
if(TARN_WARNINGS_ARE_ERRORS) # where we develop; a packager's compiler may know warnings that ours does not
  target_compile_options(tarn_warnings INTERFACE -Werror)
endif()

# What the daemon is built with: no exceptions, no run-time types, and nothing linked that is not called.
add_library(tarn_daemon_flags INTERFACE)
target_compile_options(tarn_daemon_flags INTERFACE
  -fno-exceptions -fno-rtti -fno-threadsafe-statics -ffunction-sections -fdata-sections
  # Without exceptions nothing on a router reads the tables by which a stack is unwound.
  $<$<CONFIG:MinSizeRel>:-fno-unwind-tables> $<$<CONFIG:MinSizeRel>:-fno-asynchronous-unwind-tables>)
target_link_options(tarn_daemon_flags INTERFACE -Wl,--gc-sections)
target_link_libraries(tarn_daemon_flags INTERFACE tarn_warnings)

if(TARN_SANITIZE)
  add_compile_options(-fsanitize=${TARN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TARN_SANITIZE})
endif()
if(TARN_FUZZ) # the fuzzer is led by what it reaches in the libraries, not only in its target
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# tarn_folder_library(NAME [LIBRARIES...]): a static library of every .cpp directly in the current
# folder (except main.cpp), with the daemon's flags; headers are included from the root of src/.
function(tarn_folder_library name)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PRIVATE tarn_daemon_flags PUBLIC ${ARGN})
endfunction()

# tarn_programs(OUT PATTERN...): every matching source of the current folder becomes a program of its
# name, linked with the libraries that its first line "// libraries: a b" names; OUT lists them. One
# that looks inside the stand-ins of host/ is left out where those are not built.
function(tarn_programs out)
  list(TRANSFORM ARGN PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  file(GLOB sources CONFIGURE_DEPENDS ${ARGN})
  set(programs)
  foreach(source ${sources})
    get_filename_component(name ${source} NAME_WE)
    file(STRINGS ${source} libraries LIMIT_COUNT 1 REGEX "^// libraries:")
    string(REGEX REPLACE "^// libraries: *" "" libraries "${libraries}")
    separate_arguments(libraries)
    if(libraries MATCHES host_ AND NOT TARN_HOST_LIBS)
      continue()
    endif()
    add_executable(${name} ${source})
    target_link_libraries(${name} PRIVATE ${libraries} tarn_warnings)
    list(APPEND programs ${name})
  endforeach()
  set(${out} ${programs} PARENT_SCOPE)
endfunction()
