# One folder per layer, one object library per layer, all of them packed into the one archive
# Halvora::Halvora. A layer compiles against a view of the source tree that holds only its own
# headers and those of the layers below it, so including a higher layer's header does not compile.

set(HALVORA_VIEWS_DIR ${PROJECT_BINARY_DIR}/layer-views)
set_property(GLOBAL PROPERTY HALVORA_LAYERS "")

# nlohmann/json dominates compile times; every layer reuses one precompiled header, built with the
# same flags as the layers so that the compiler accepts it.
file(WRITE ${PROJECT_BINARY_DIR}/halvora_pch.cpp "// The precompiled headers of the layers.\n")
add_library(halvora_pch OBJECT ${PROJECT_BINARY_DIR}/halvora_pch.cpp)
set_target_properties(halvora_pch PROPERTIES POSITION_INDEPENDENT_CODE ON)
target_link_libraries(halvora_pch PRIVATE nlohmann_json::nlohmann_json)
target_compile_definitions(halvora_pch PRIVATE HALVORA_THREAD_CHECKS=$<BOOL:${HALVORA_THREAD_CHECKS}>)
halvora_warnings(halvora_pch)
target_precompile_headers(halvora_pch PRIVATE <nlohmann/json.hpp> <functional> <memory> <optional>
                          <string> <vector>)

# Gives `target` a private include root holding links to the headers of `folders` (relative to
# the project's root), one level each.
function(halvora_view target)
  set(view ${HALVORA_VIEWS_DIR}/${target})
  file(REMOVE_RECURSE ${view})
  foreach(folder IN LISTS ARGN)
    file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*.h)
    file(MAKE_DIRECTORY ${view}/${folder})
    foreach(header IN LISTS headers)
      get_filename_component(name ${header} NAME)
      file(CREATE_LINK ${header} ${view}/${folder}/${name} SYMBOLIC)
    endforeach()
  endforeach()
  target_include_directories(${target} PRIVATE ${view})
endfunction()

# halvora_layer(<target> SOURCES <files>... [DEPENDS <layers>...] [LINK <libraries>...]
#               [FOLDERS <folders>...])
# FOLDERS defaults to the calling folder; DEPENDS names the layers directly below.
function(halvora_layer target)
  cmake_parse_arguments(arg "" "" "SOURCES;DEPENDS;LINK;FOLDERS" ${ARGN})
  add_library(${target} OBJECT ${arg_SOURCES})
  if(NOT arg_FOLDERS)
    file(RELATIVE_PATH arg_FOLDERS ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  endif()
  set(folders ${arg_FOLDERS})
  foreach(dep IN LISTS arg_DEPENDS)
    get_target_property(below ${dep} HALVORA_FOLDERS)
    list(APPEND folders ${below})
  endforeach()
  list(REMOVE_DUPLICATES folders)
  set_target_properties(${target} PROPERTIES HALVORA_FOLDERS "${folders}" POSITION_INDEPENDENT_CODE ON)
  halvora_view(${target} ${folders})
  if(IS_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/include)
    target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>)
  endif()
  target_link_libraries(${target} PUBLIC ${arg_DEPENDS} ${arg_LINK})
  target_compile_definitions(${target} PRIVATE HALVORA_THREAD_CHECKS=$<BOOL:${HALVORA_THREAD_CHECKS}>)
  halvora_warnings(${target})
  target_precompile_headers(${target} REUSE_FROM halvora_pch)
  set_property(GLOBAL APPEND PROPERTY HALVORA_LAYERS ${target})
endfunction()
