# Small helpers shared by the sub-folders.

# zv_glob(VAR dir...): the C and C++ sources and resource scripts (.rc) of the
# folders, re-read whenever a file is added, so a new source needs no edit of
# a CMakeLists.txt.
function(zv_glob var)
  set(files)
  foreach(dir ${ARGN})
    file(GLOB found CONFIGURE_DEPENDS
         ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/*.c
         ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/*.rc)
    list(APPEND files ${found})
  endforeach()
  set(${var} ${files} PARENT_SCOPE)
endfunction()

# zv_link_static(target): no MinGW runtime DLL at run time.
function(zv_link_static target)
  target_link_options(${target} PRIVATE ${ZV_STATIC_LINK})
endfunction()

# zv_link_whole(target lib...): pulls every object of the libraries in, so that
# all functions marked for export are exported by name from the executable.
function(zv_link_whole target)
  foreach(lib ${ARGN})
    target_link_libraries(${target} PRIVATE -Wl,--whole-archive ${lib} -Wl,--no-whole-archive)
    add_dependencies(${target} ${lib})
  endforeach()
endfunction()

set(ZV_WIN_LIBS ole32 oleaut32 uuid rpcrt4 shlwapi shell32 user32 gdi32 advapi32 version comctl32)
