# Build helpers shared by the daemon, its tools, tests and benchmarks.

set(TALLYD_WARNINGS -Wall -Wextra -Werror)

# 64-bit file offsets and inode numbers on a 32-bit target too. Without them
# glibc's readdir() and stat() fail with EOVERFLOW when the kernel hands over a
# number wider than 32 bits (the inode numbers of a large or overlay file
# system; ext4's directory cookies when a 32-bit program runs on a 64-bit
# kernel under qemu-user), and the spool would look empty. A no-op on 64-bit
# hosts; the daemon's own numbers are fixed-width whatever this says.
add_compile_definitions(_FILE_OFFSET_BITS=64)
set(TALLYD_MODULES "" CACHE INTERNAL "")

# tallyd_module(name deps...): every .cc file of src/<name> becomes the object
# library tallyd_<name>_obj and the static library tallyd_<name>; deps are
# other module names or plain libraries, exactly the ones the module's files
# include (the graph has no cycle, so static linking needs no repetition).
function(tallyd_module name)
  file(GLOB srcs CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/${name}/*.cc)
  add_library(tallyd_${name}_obj OBJECT ${srcs})
  target_include_directories(tallyd_${name}_obj PUBLIC ${CMAKE_SOURCE_DIR}/src)
  target_compile_options(tallyd_${name}_obj PRIVATE ${TALLYD_WARNINGS})
  add_library(tallyd_${name} STATIC $<TARGET_OBJECTS:tallyd_${name}_obj>)
  target_include_directories(tallyd_${name} PUBLIC ${CMAKE_SOURCE_DIR}/src)
  foreach(dep ${ARGN})
    if(TARGET tallyd_${dep})
      target_link_libraries(tallyd_${name} PUBLIC tallyd_${dep})
    elseif(TARGET ${dep})
      # Generated code (the flow messages): its headers must exist before
      # this module compiles, and its objects go into the module library.
      target_link_libraries(tallyd_${name}_obj PUBLIC ${dep})
      target_link_libraries(tallyd_${name} PUBLIC ${dep})
    else()
      target_link_libraries(tallyd_${name} PUBLIC ${dep})
    endif()
  endforeach()
  set(TALLYD_MODULES ${TALLYD_MODULES} ${name} CACHE INTERNAL "")
endfunction()

# libtallyd.a: the objects of every module in one archive.
function(tallyd_all_library name)
  set(objs "")
  foreach(m ${TALLYD_MODULES})
    list(APPEND objs $<TARGET_OBJECTS:tallyd_${m}_obj>)
  endforeach()
  add_library(${name} STATIC ${objs} $<TARGET_OBJECTS:tallyd_proto>)
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/src
                             $<TARGET_PROPERTY:tallyd_proto,INTERFACE_INCLUDE_DIRECTORIES>)
  target_link_libraries(${name} PUBLIC SQLite::SQLite3 ${PUGIXML_LIB} ${NANOPB_LIB} ${CMAKE_DL_LIBS})
endfunction()

# tallyd_nanopb(target proto options): generate the nanopb C sources of one
# .proto file into the build tree and compile them as an object library.
function(tallyd_nanopb target proto options)
  get_filename_component(base ${proto} NAME_WE)
  set(out ${CMAKE_BINARY_DIR}/proto)
  add_custom_command(
    OUTPUT ${out}/${base}.pb.c ${out}/${base}.pb.h
    COMMAND ${CMAKE_COMMAND} -E make_directory ${out}
    COMMAND nanopb_generator.py -q -I ${CMAKE_SOURCE_DIR}/proto -D ${out}
            -f ${options} ${proto}
    DEPENDS ${proto} ${options}
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}/proto
    COMMENT "nanopb: generating ${base}.pb.c")
  add_library(${target} OBJECT ${out}/${base}.pb.c)
  target_include_directories(${target} PUBLIC ${out})
  target_link_libraries(${target} PUBLIC ${NANOPB_LIB})
endfunction()
