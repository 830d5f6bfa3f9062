include_guard(GLOBAL)
pkg_check_modules(thrift REQUIRED IMPORTED_TARGET GLOBAL thrift)
# Thrift's own headers cast a peer's type byte to an enum before they look at it.
set_property(TARGET PkgConfig::thrift APPEND PROPERTY INTERFACE_COMPILE_OPTIONS -fno-sanitize=enum)
find_program(THRIFT_COMPILER thrift REQUIRED)
find_program(PYTHON3 python3 REQUIRED)

# mretriever_thrift(TARGET DEFINITION INCLUDES dir... FILES file...)
# Adds the code generated from DEFINITION to TARGET. FILES are the generated
# files, each named once; the ones that end in .cpp are compiled.
function(mretriever_thrift target definition)
  cmake_parse_arguments(arg "" "" "INCLUDES;FILES" ${ARGN})
  set(out ${CMAKE_CURRENT_BINARY_DIR}/gen-cpp)
  set(finish ${CMAKE_SOURCE_DIR}/fw/src/iface/finish_gen.py)
  list(TRANSFORM arg_FILES PREPEND ${out}/)
  set(includes)
  set(included)
  foreach(folder ${arg_INCLUDES})
    list(APPEND includes -I ${folder})
    file(GLOB definitions ${folder}/*.thrift)
    list(APPEND included ${definitions})
  endforeach()
  file(MAKE_DIRECTORY ${out})
  add_custom_command(
    OUTPUT ${arg_FILES}
    COMMAND ${THRIFT_COMPILER} ${includes} --gen cpp:no_skeleton -out ${out}
            ${CMAKE_CURRENT_SOURCE_DIR}/${definition}
    COMMAND ${PYTHON3} ${finish} ${arg_FILES}
    DEPENDS ${definition} ${included} ${finish}
    COMMENT "Generating code from ${definition}" VERBATIM)
  # Sources of the generator are not ours to judge.
  target_sources(${target} PRIVATE ${arg_FILES})
  target_include_directories(${target} SYSTEM PUBLIC ${out})
  target_link_libraries(${target} PUBLIC PkgConfig::thrift)
endfunction()
