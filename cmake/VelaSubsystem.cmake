# vela_subsystem(NAME <name> [HEADERS ...] [SOURCES ...] [TESTS ...] [BENCHES ...])
#
# A folder of the library, named from its own CMakeLists.txt. HEADERS are public: installed, and compiled alone by
# the header test. SOURCES go into libvela. TESTS become one executable test_<name> and one ctest entry of that name.
# BENCHES become one executable bench_<stem> each. Files are relative to the folder.
function(vela_subsystem)
  cmake_parse_arguments(PARSE_ARGV 0 S "" "NAME" "HEADERS;SOURCES;TESTS;BENCHES")
  if(S_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "vela_subsystem(${S_NAME}): unknown arguments ${S_UNPARSED_ARGUMENTS}")
  endif()
  list(TRANSFORM S_HEADERS PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/")
  list(TRANSFORM S_SOURCES PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/")
  if(S_SOURCES)
    target_sources(vela PRIVATE ${S_SOURCES})
  endif()
  if(S_HEADERS)
    target_sources(vela PUBLIC FILE_SET HEADERS FILES ${S_HEADERS})
    set_property(GLOBAL APPEND PROPERTY VELA_PUBLIC_HEADERS ${S_HEADERS})
  endif()

  if(VELA_BUILD_TESTS AND S_TESTS)
    add_executable(test_${S_NAME} ${S_TESTS})
    target_link_libraries(test_${S_NAME} PRIVATE vela vela_options vela_test_support)
    add_test(NAME ${S_NAME} COMMAND test_${S_NAME} --gtest_brief=1)
    vela_use_build_tree(test_${S_NAME})
  endif()

  if(VELA_BUILD_BENCHES)
    foreach(bench IN LISTS S_BENCHES)
      get_filename_component(stem "${bench}" NAME_WE)
      add_executable(bench_${stem} ${bench})
      target_link_libraries(bench_${stem} PRIVATE vela vela_options benchmark::benchmark benchmark::benchmark_main)
      vela_use_build_tree(bench_${stem})
    endforeach()
  endif()
endfunction()

# vela_use_build_tree(<target>): whatever an executable of the build tree needs to find libvela's own libraries.
# cmake/OpenUsd.cmake sets the properties; a target that links vela needs nothing else.
function(vela_use_build_tree target)
  if(COMMAND vela_openusd_executable)
    vela_openusd_executable(${target})
  endif()
endfunction()
