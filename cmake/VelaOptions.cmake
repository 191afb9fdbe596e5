# vela_options: the one place where compile flags live. Library, tests, tools and bindings all link
# it, so floating-point results cannot differ between them.
add_library(vela_options INTERFACE)
target_compile_features(vela_options INTERFACE cxx_std_17)
target_compile_options(vela_options INTERFACE
  -ffp-contract=off # a fused multiply-add rounds once where the contract rounds twice
  # Exported functions may be inlined within the library: nobody replaces one of ours.
  -fno-semantic-interposition
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wdouble-promotion
  -Wnon-virtual-dtor -Woverloaded-virtual -Wundef)
if(VELA_WARNINGS_AS_ERRORS)
  target_compile_options(vela_options INTERFACE -Werror)
endif()

# Dev: as fast as Release, but with assertions and line numbers. Plain variables: project() has
# already cached empty flags for a build type it does not know, and a cached default here would come
# too late.
set(CMAKE_CXX_FLAGS_DEV "-O2 -g1")

set(VELA_SANITIZE "" CACHE STRING
  "Sanitizers: address-undefined, thread, fuzz (clang's, with the fuzzer's counters) or empty")
if(VELA_SANITIZE STREQUAL "address-undefined")
  set(_flags -fsanitize=address,undefined,float-cast-overflow -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
elseif(VELA_SANITIZE STREQUAL "thread")
  set(_flags -fsanitize=thread -fno-omit-frame-pointer)
elseif(VELA_SANITIZE STREQUAL "fuzz")
  set(_flags -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -g1)
elseif(VELA_SANITIZE)
  message(FATAL_ERROR "VELA_SANITIZE: unknown value '${VELA_SANITIZE}'")
endif()
if(VELA_SANITIZE)
  target_compile_options(vela_options INTERFACE ${_flags})
  # The standard library's own checks of indices and iterators, beside the sanitizer's of memory.
  target_compile_definitions(vela_options INTERFACE _GLIBCXX_ASSERTIONS)
  target_link_options(vela_options INTERFACE ${_flags})
  # What the fuzzer and clang's sanitizers need is in executables alone, and libraries lack it.
  if(VELA_SANITIZE STREQUAL "fuzz")
    target_link_options(vela_options INTERFACE -Wl,-z,undefs)
  endif()
endif()
