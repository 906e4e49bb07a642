# The common settings of all targets: the language, the warnings, the sanitizers, the places of the output.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)

find_package(Threads REQUIRED)

add_library(keldane_options INTERFACE)
target_include_directories(keldane_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(keldane_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
target_link_libraries(keldane_options INTERFACE Threads::Threads)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(keldane_options INTERFACE -Wthread-safety)
endif()
if(KELDANE_FUZZERS AND KELDANE_SANITIZE)
  # The fuzzers need the coverage of the product's code; the tests' own code would only slow the build down. Without a
  # sanitizer no program is linked that records coverage, and the fuzzers' inputs are only run again.
  target_compile_options(keldane_options INTERFACE $<$<NOT:$<BOOL:$<TARGET_PROPERTY:KELDANE_IS_TEST>>>:-fsanitize=fuzzer-no-link>)
endif()
if(KELDANE_LOCK_ORDER)
  target_compile_definitions(keldane_options INTERFACE KELDANE_LOCK_ORDER)
endif()
if(KELDANE_SANITIZE)
  target_compile_options(keldane_options INTERFACE -fsanitize=${KELDANE_SANITIZE} -fno-omit-frame-pointer
                                                   -fno-sanitize-recover=all)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # The instrumented headers of the standard library cause false warnings of this kind.
    target_compile_options(keldane_options INTERFACE -Wno-maybe-uninitialized)
  elseif(KELDANE_SANITIZE MATCHES undefined)
    # This check uses a pipe to test addresses, and reports errors in a process without a free descriptor.
    target_compile_options(keldane_options INTERFACE -fno-sanitize=vptr)
  endif()
  target_link_options(keldane_options INTERFACE -fsanitize=${KELDANE_SANITIZE})
endif()

include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)

# Nobody replaces single functions of a shared library, so calls within it may be inlined or direct. The other compiler
# assumes that by default.
check_cxx_compiler_flag(-fno-semantic-interposition KELDANE_HAS_fno_semantic_interposition)
if(KELDANE_HAS_fno_semantic_interposition)
  add_compile_options(-fno-semantic-interposition)
endif()
check_linker_flag(CXX LINKER:-Bsymbolic-functions KELDANE_HAS_Bsymbolic_functions)
if(KELDANE_HAS_Bsymbolic_functions)
  add_link_options($<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>:LINKER:-Bsymbolic-functions>)
endif()

# Release builds make mistakes hard to exploit: code and stack have random addresses, calls of the C library and element
# accesses of the C++ library are checked (a failed check ends the process), stacks and jumps are guarded, and every symbol
# is bound at the start, so that no binding can be overwritten. The sanitizers find such mistakes in builds of their own. A
# flag that the compiler lacks for this processor is left out.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
set(release $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
if(NOT KELDANE_SANITIZE)
  add_compile_options($<${release}:-U_FORTIFY_SOURCE> $<${release}:-D_FORTIFY_SOURCE=3>
                      $<${release}:-D_GLIBCXX_ASSERTIONS>)
  foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection=full -mbranch-protection=standard)
    string(MAKE_C_IDENTIFIER "KELDANE_HAS${flag}" has)
    check_cxx_compiler_flag(${flag} ${has})
    if(${has})
      add_compile_options($<${release}:${flag}>)
    endif()
  endforeach()
  add_link_options($<${release}:LINKER:-z,relro> $<${release}:LINKER:-z,now> $<${release}:LINKER:-z,noexecstack>)
endif()

# keldane_sources(OUT DIR...): the .cpp files in these folders of the current one.
function(keldane_sources out)
  set(patterns)
  foreach(folder ${ARGN})
    list(APPEND patterns ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp)
  endforeach()
  file(GLOB found CONFIGURE_DEPENDS ${patterns})
  set(${out} ${found} PARENT_SCOPE)
endfunction()
