# Compiler settings shared by every target: C++20, warnings as errors, ccache and sanitizers on request.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

# The standard library costs more to read than most of our sources: a few read it together. Only where nobody waits for one source.
if(CRV_QUICK)
  set(CMAKE_UNITY_BUILD ON)
  set(CMAKE_UNITY_BUILD_BATCH_SIZE 12)
endif()

add_library(crv_options INTERFACE)
target_compile_options(crv_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow $<$<BOOL:${CRV_WERROR}>:-Werror>
  $<$<COMPILE_LANGUAGE:CXX>:-Wconversion;-Wno-sign-conversion;-Wnon-virtual-dtor;-Woverloaded-virtual>)
# g++ 12 sees overflows in its own containers once it has inlined them at -O2; ASan looks for the real ones.
target_compile_options(crv_options INTERFACE
  $<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds;-Wno-stringop-overflow;-Wno-stringop-overread;-Wno-restrict>)
target_compile_definitions(crv_options INTERFACE OPENSSL_NO_DEPRECATED OPENSSL_API_COMPAT=30000 _FILE_OFFSET_BITS=64)
# Debug information names files from the root of the sources, so that equal code in two checkouts is compiled once.
target_compile_options(crv_options INTERFACE -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)

# Hardening everywhere: return addresses, buffers of known size, indirect branches, addresses, and tables of the linker.
target_compile_options(crv_options INTERFACE -fstack-protector-strong -fcf-protection)
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")  # it needs the optimiser
  target_compile_definitions(crv_options INTERFACE _FORTIFY_SOURCE=2)
  # Unique symbols cannot be made local to the archive for other programs.
  target_compile_options(crv_options INTERFACE $<$<AND:$<CXX_COMPILER_ID:GNU>,$<COMPILE_LANGUAGE:CXX>>:-fno-gnu-unique>)
endif()
include(CheckPIESupported)
check_pie_supported()
add_link_options(-Wl,-z,relro,-z,now)

if(CRV_QUICK)
  # Of sources that are compiled together: unnamed namespaces of a neighbour look like those of a header and of the file itself.
  target_compile_options(crv_options INTERFACE -Wno-subobject-linkage -Wno-shadow)
endif()

if(CRV_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
if(CRV_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link -D_GLIBCXX_ASSERTIONS -fno-omit-frame-pointer)
endif()
