# One interface target carries the project's warnings and defines; every
# target of the project links it.
add_library(nm_options INTERFACE)
target_compile_options(nm_options INTERFACE
  -Wall -Wextra -Wno-unused-parameter
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
  # The distribution's hardening: checked buffer calls where the size is
  # known (they need the optimizer, so not in Debug) and stack canaries.
  -fstack-protector-strong
  $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
# Every symbol is bound at start and the tables that binding fills are made
# read-only (full RELRO): no lazy binding mid-run, whose resolver saves all
# registers, key material among them, on a worker's stack.
target_link_options(nm_options INTERFACE -Wl,-z,relro -Wl,-z,now)
target_compile_definitions(nm_options INTERFACE
  _FILE_OFFSET_BITS=64
  QT_NO_CAST_FROM_BYTEARRAY QT_NO_URL_CAST_FROM_STRING QT_DEPRECATED_WARNINGS)

if(NM_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

# Adds every sub-folder of the current folder that has a CMakeLists.txt, so a
# new benchmark or tool needs no edit here.
function(nm_add_subfolders)
  file(GLOB entries LIST_DIRECTORIES true ${CMAKE_CURRENT_SOURCE_DIR}/*)
  foreach(dir ${entries})
    if(IS_DIRECTORY ${dir} AND EXISTS ${dir}/CMakeLists.txt)
      add_subdirectory(${dir})
    endif()
  endforeach()
endfunction()
