# Debian packages of the preset standalone, by CPack: each library by its soname, the development
# files of both, the command, and the site of the documentation. Not taken: one package of all; a
# host that links libvela needs no OpenEXR, and a machine that renders needs no headers.
string(TIMESTAMP VELA_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC) # heeds SOURCE_DATE_EPOCH

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vela)
set(CPACK_PACKAGE_VENDOR "")
set(CPACK_PACKAGE_CONTACT "Vela maintainers <maintainers@vela.invalid>")
set(CPACK_PACKAGE_HOMEPAGE_URL "")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/debian/CleanTree.cmake")
# The packages' libraries need each other, and what lies beside the module of OpenAssetIO.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  "${PROJECT_BINARY_DIR}/src" "${PROJECT_BINARY_DIR}/src/vela/picture" "${VELA_OPENASSETIO_LIBS}")

get_target_property(_soversion vela SOVERSION)
set(_library libvela${_soversion})
set(_picture libvela-picture${_soversion})

# vela_debian(COMPONENT <component> PACKAGE <name> SECTION <section> [DEPENDS <text>] TITLE <line>
#   TEXT <line>...)
function(vela_debian)
  cmake_parse_arguments(PARSE_ARGV 0 D "" "COMPONENT;PACKAGE;SECTION;DEPENDS;TITLE" "TEXT")
  string(TOUPPER "${D_COMPONENT}" key)
  list(JOIN D_TEXT "\n" text)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME "${D_PACKAGE}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION "${D_SECTION}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_PACKAGE_DEPENDS "${D_DEPENDS}" PARENT_SCOPE)
  set(CPACK_COMPONENT_${key}_DESCRIPTION "${D_TITLE}\n${text}" PARENT_SCOPE)
  list(APPEND components ${D_COMPONENT})
  set(components "${components}" PARENT_SCOPE)

  # What every Debian package has: copyright and change log.
  set(folder "${PROJECT_BINARY_DIR}/debian/${D_PACKAGE}")
  file(MAKE_DIRECTORY "${folder}")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/debian/copyright" "${folder}/copyright" COPYONLY)
  configure_file("${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in" "${folder}/changelog" @ONLY)
  execute_process(COMMAND gzip -9nkf "${folder}/changelog" COMMAND_ERROR_IS_FATAL ANY)
  set(files "${folder}/copyright" "${folder}/changelog.gz")
  install(FILES ${files} DESTINATION "share/doc/${D_PACKAGE}" COMPONENT ${D_COMPONENT}
    EXCLUDE_FROM_ALL)
  set(overrides "${PROJECT_SOURCE_DIR}/cmake/debian/${D_COMPONENT}.lintian-overrides")
  if(EXISTS "${overrides}")
    install(FILES "${overrides}" RENAME "${D_PACKAGE}" DESTINATION share/lintian/overrides
      COMPONENT ${D_COMPONENT} EXCLUDE_FROM_ALL)
  endif()
endfunction()

set(components "")
vela_debian(COMPONENT runtime PACKAGE ${_library} SECTION libs
  TITLE "image channels and 3D scenes: the library"
  TEXT "Named channels and layers, cameras and lenses, ray queries over the meshes"
    "of OpenUSD scenes, selections, random streams, asset references."
    "This package holds the library. It brings its own OpenUSD, which no other"
    "program meets.")
vela_debian(COMPONENT picture PACKAGE ${_picture} SECTION libs
  DEPENDS "${_library} (= ${PROJECT_VERSION})"
  TITLE "image channels and 3D scenes: the library of pictures"
  TEXT "Renders scenes to pictures, in memory or into OpenEXR and PNG files, whole"
    "or tile by tile, without a graphics card.")
vela_debian(COMPONENT devel PACKAGE libvela-dev SECTION libdevel
  DEPENDS "${_library} (= ${PROJECT_VERSION}), ${_picture} (= ${PROJECT_VERSION})"
  TITLE "image channels and 3D scenes: development files"
  TEXT "Headers, and the files by which CMake and pkg-config find the libraries.")
vela_debian(COMPONENT command PACKAGE vela SECTION graphics
  DEPENDS "${_library} (= ${PROJECT_VERSION}), ${_picture} (= ${PROJECT_VERSION})"
  TITLE "pictures and facts of 3D scenes"
  TEXT "The command vela renders OpenUSD scenes without a graphics card, says what"
    "they hold and what a pixel shows, and resolves asset references.")
vela_debian(COMPONENT docs PACKAGE vela-doc SECTION doc
  TITLE "image channels and 3D scenes: documentation"
  TEXT "Guide, reference of C++ and Python, decisions, as pages for a browser with a"
    "search that needs no server.")
# It has no program, so that it serves every kind of machine and needs no library.
set(CPACK_DEBIAN_DOCS_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOCS_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVEL_PACKAGE_SUGGESTS vela-doc)
install(DIRECTORY "${VELA_SITE}/html" COMPONENT docs EXCLUDE_FROM_ALL
  DESTINATION share/doc/vela-doc)
install(DIRECTORY "${VELA_SITE}/licences/" COMPONENT docs EXCLUDE_FROM_ALL
  DESTINATION share/doc/vela-doc/third-party)
install(FILES "${PROJECT_SOURCE_DIR}/cmake/debian/vela-doc.doc-base" RENAME vela-doc
  COMPONENT docs EXCLUDE_FROM_ALL DESTINATION share/doc-base)
# Without its Python packages the library resolves through native managers alone.
set(CPACK_DEBIAN_COMMAND_PACKAGE_SUGGESTS "libpython${VELA_OPENASSETIO_PYTHON}")
set(CPACK_COMPONENTS_ALL ${components})

# Licences and notices of what the library carries, and the list of it.
install(DIRECTORY "${VELA_OPENUSD_PREFIX}/licences/" COMPONENT runtime EXCLUDE_FROM_ALL
  DESTINATION "share/doc/${_library}/third-party")
install(FILES "${PROJECT_BINARY_DIR}/vela.spdx.json" COMPONENT runtime EXCLUDE_FROM_ALL
  DESTINATION "share/doc/${_library}")

# What depends on a library by its soname, and the loader's cache. By hand: CPack would call
# ldconfig from scripts, which Debian has given up for triggers.
foreach(_name IN ITEMS RUNTIME PICTURE)
  set(_folder "${PROJECT_BINARY_DIR}/debian/${_name}")
  set(_soname libvela)
  if(_name STREQUAL "PICTURE")
    set(_soname libvela_picture)
  endif()
  file(WRITE "${_folder}/triggers" "activate-noawait ldconfig\n")
  file(WRITE "${_folder}/shlibs" "${_soname} ${_soversion} ${CPACK_DEBIAN_${_name}_PACKAGE_NAME} \
(>= ${PROJECT_VERSION})\n")
  set(CPACK_DEBIAN_${_name}_PACKAGE_CONTROL_EXTRA "${_folder}/triggers;${_folder}/shlibs")
endforeach()

include(CPack)
