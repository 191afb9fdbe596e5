# The target `docs`: the site of the documentation, in build/docs/html (docs/site/make_site). Not a
# part of `all`: it needs what `scripts/setup docs` installs.
set(VELA_SITE "${PROJECT_SOURCE_DIR}/build/docs")
add_custom_target(docs
  COMMAND "${PROJECT_SOURCE_DIR}/docs/site/make_site" "$<TARGET_FILE_DIR:vela-python>/.."
  USES_TERMINAL VERBATIM
  COMMENT "Making the site of the documentation")
add_dependencies(docs vela-python-stubs)
