# vela_library(NAME <library> EXPORT_NAME <name> [DEFINE <macro>])
#
# A shared library <library>, Vela::<name> to its users, and the objects that it is made of,
# <library>_objects. Everything private (what it is built from, what it links) is said of the
# objects; the library is their shipped form. Tests and benches of the library's folders take the
# objects, so that what the library hides is within their reach; the command, the consumers and the
# documented examples take the library. DEFINE is defined while its objects are compiled.
function(vela_library)
  cmake_parse_arguments(PARSE_ARGV 0 L "" "NAME;EXPORT_NAME;DEFINE" "")
  if(L_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "vela_library(${L_NAME}): unknown arguments ${L_UNPARSED_ARGUMENTS}")
  endif()
  add_library(${L_NAME}_objects OBJECT)
  vela_library_objects(${L_NAME}_objects)
  if(L_DEFINE)
    target_compile_definitions(${L_NAME}_objects PRIVATE ${L_DEFINE})
  endif()

  add_library(${L_NAME} SHARED)
  add_library(Vela::${L_EXPORT_NAME} ALIAS ${L_NAME})
  # Until 1.0 a minor version may break callers, so the soname carries it.
  set(soversion ${PROJECT_VERSION_MAJOR})
  if(soversion EQUAL 0)
    set(soversion 0.${PROJECT_VERSION_MINOR})
  endif()
  set_target_properties(${L_NAME} PROPERTIES EXPORT_NAME ${L_EXPORT_NAME}
    SOVERSION ${soversion} LINKER_LANGUAGE CXX)
  if(NOT VELA_PYTHON_WHEEL)
    # A wheel has no links: there the library lies under its soname alone.
    set_property(TARGET ${L_NAME} PROPERTY VERSION ${PROJECT_VERSION})
  endif()
  target_compile_features(${L_NAME} PUBLIC cxx_std_17)
  target_link_libraries(${L_NAME} PRIVATE $<BUILD_INTERFACE:${L_NAME}_objects>)
  set(exports "${PROJECT_SOURCE_DIR}/cmake/exports.map")
  target_link_options(${L_NAME} PRIVATE -Wl,--no-undefined "-Wl,--version-script=${exports}")
  set_property(TARGET ${L_NAME} APPEND PROPERTY LINK_DEPENDS "${exports}")
  target_sources(${L_NAME} PUBLIC FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}/src")
  set_property(GLOBAL APPEND PROPERTY VELA_LIBRARIES ${L_NAME})
endfunction()

# vela_library_objects(<target>): compiles an object library the way all code of a library is
# compiled.
function(vela_library_objects target)
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_include_directories(${target} PUBLIC "${PROJECT_SOURCE_DIR}/src")
  target_link_libraries(${target} PRIVATE vela_options)
endfunction()

# vela_subsystem(NAME <name> [LIBRARY <library>] [HEADERS ...] [SOURCES ...] [TESTS ...] [BENCHES
# ...])
#
# A folder of a library (of vela unless said), named from its own CMakeLists.txt. HEADERS are
# public: installed, and compiled alone by the header test. SOURCES go into the library's objects.
# TESTS become one executable test_<name> and one ctest entry of that name. BENCHES become one
# executable bench_<stem> each. Files are relative to the folder.
function(vela_subsystem)
  cmake_parse_arguments(PARSE_ARGV 0 S "" "NAME;LIBRARY" "HEADERS;SOURCES;TESTS;BENCHES")
  if(S_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "vela_subsystem(${S_NAME}): unknown arguments ${S_UNPARSED_ARGUMENTS}")
  endif()
  if(NOT S_LIBRARY)
    set(S_LIBRARY vela)
  endif()
  list(TRANSFORM S_HEADERS PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/")
  list(TRANSFORM S_SOURCES PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/")
  if(S_SOURCES)
    target_sources(${S_LIBRARY}_objects PRIVATE ${S_SOURCES})
  endif()
  if(S_HEADERS)
    target_sources(${S_LIBRARY} PUBLIC FILE_SET HEADERS FILES ${S_HEADERS})
    set_property(GLOBAL APPEND PROPERTY VELA_PUBLIC_HEADERS ${S_HEADERS})
  endif()

  if(VELA_BUILD_TESTS AND S_TESTS)
    add_executable(test_${S_NAME} ${S_TESTS})
    target_link_libraries(test_${S_NAME} PRIVATE vela_test_support)
    vela_link_objects(test_${S_NAME} ${S_LIBRARY})
    add_test(NAME ${S_NAME} COMMAND test_${S_NAME} --gtest_brief=1)
    set_property(GLOBAL APPEND PROPERTY VELA_TEST_EXECUTABLES test_${S_NAME})
  endif()

  if(VELA_BUILD_BENCHES)
    foreach(bench IN LISTS S_BENCHES)
      get_filename_component(stem "${bench}" NAME_WE)
      add_executable(bench_${stem} ${bench})
      target_link_libraries(bench_${stem} PRIVATE vela_bench)
      vela_link_objects(bench_${stem} ${S_LIBRARY})
      set_property(GLOBAL APPEND PROPERTY VELA_BENCHES bench_${stem})
    endforeach()
  endif()
endfunction()

# vela_link_objects(<executable> [<library>]): an executable of the build tree made with the objects
# of a library (vela unless said) in place of the library. What lies beside whatever holds that
# code, the scenes' plug-in tables, the module of OpenAssetIO and the program that tries scenes,
# lies beside the executable here.
function(vela_link_objects target)
  set(library vela)
  if(ARGC GREATER 1)
    set(library ${ARGV1})
  endif()
  target_link_libraries(${target} PRIVATE ${library}_objects vela_options)
  vela_use_build_tree(${target})
  get_target_property(folder ${target} BINARY_DIR)
  if(NOT folder STREQUAL "${PROJECT_BINARY_DIR}/src")
    file(MAKE_DIRECTORY "${folder}/vela")
    foreach(beside IN ITEMS usd openassetio scene-trial)
      file(CREATE_LINK "${PROJECT_BINARY_DIR}/src/vela/${beside}" "${folder}/vela/${beside}"
        SYMBOLIC)
    endforeach()
  endif()
endfunction()

# vela_use_build_tree(<target>): whatever an executable of the build tree needs to find libvela's
# own libraries. cmake/OpenUsd.cmake sets the properties; a target that links vela needs nothing
# else.
function(vela_use_build_tree target)
  if(COMMAND vela_openusd_executable)
    vela_openusd_executable(${target})
  endif()
endfunction()
