# HALVORA_SANITIZE applies to everything built in the tree, so that the library and its tests agree.
if(HALVORA_SANITIZE)
  string(REPLACE ";" "," _halvora_san "${HALVORA_SANITIZE}")
  add_compile_options(-fsanitize=${_halvora_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${_halvora_san})
endif()
