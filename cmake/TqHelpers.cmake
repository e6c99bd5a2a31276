# tq_add_library(NAME DIRS dir... [PUBLIC_DEPS ...] [PRIVATE_DEPS ...])
# Builds one library from every .cpp below the given folders (relative to the project root).
# Adding a unit is adding its files: no list to edit.
set(TQ_ALL_LIBRARIES "" CACHE INTERNAL "")
set(TQ_WARNINGS -Wall -Wextra)

function(tq_add_library name)
  cmake_parse_arguments(ARG "" "" "DIRS;PUBLIC_DEPS;PRIVATE_DEPS" ${ARGN})
  set(sources "")
  foreach(dir IN LISTS ARG_DIRS)
    file(GLOB_RECURSE found CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${dir}/*.cpp")
    list(APPEND sources ${found})
  endforeach()
  if(sources)
    # Compiled once as ${name}_objects, so that a program can also link these objects statically
    # (the tqkit tool does, for its commands that must start as fast as the coreutils).
    add_library(${name}_objects OBJECT ${sources})
    target_include_directories(${name}_objects PUBLIC ${PROJECT_SOURCE_DIR}/include)
    target_compile_options(${name}_objects PRIVATE ${TQ_WARNINGS} $<$<BOOL:${TQ_WERROR}>:-Werror>)
    target_link_libraries(${name}_objects PUBLIC ${ARG_PUBLIC_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
    add_library(${name} $<TARGET_OBJECTS:${name}_objects>)
    target_include_directories(${name} PUBLIC
      $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
      $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    target_link_libraries(${name} PUBLIC ${ARG_PUBLIC_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
    set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  else()
    # A family with no compiled unit yet still offers its headers.
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE
      $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
      $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    target_link_libraries(${name} INTERFACE ${ARG_PUBLIC_DEPS})
  endif()
  add_library(tqkit::${name} ALIAS ${name})
  install(TARGETS ${name} EXPORT tqkitTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  set(TQ_ALL_LIBRARIES ${TQ_ALL_LIBRARIES} ${name} CACHE INTERNAL "")
endfunction()

# tq_add_program(NAME SOURCES ... LIBS ...): an internal executable with the project's warnings.
function(tq_add_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_compile_options(${name} PRIVATE ${TQ_WARNINGS} $<$<BOOL:${TQ_WERROR}>:-Werror>)
  target_link_libraries(${name} PRIVATE ${ARG_LIBS})
endfunction()
