# jx_name_table(TARGET IN TABLE PREFIX ROWS EXPORT): generates the table's C
# source and the function-number header into the binary dir and adds both.
function(jx_name_table target in table prefix rows export)
  get_filename_component(base ${in} NAME_WE)
  set(out_c ${CMAKE_CURRENT_BINARY_DIR}/${table}.c)
  set(out_h ${CMAKE_CURRENT_BINARY_DIR}/${table}_ids.hpp)
  add_custom_command(OUTPUT ${out_c} ${out_h}
    COMMAND ${CMAKE_COMMAND} -DIN=${in} -DOUT_C=${out_c} -DOUT_H=${out_h} -DTABLE=${table}
            -DPREFIX=${prefix} -DROWS=${rows} -DEXPORT=${export}
            -P ${PROJECT_SOURCE_DIR}/cmake/GenNameTable.cmake
    DEPENDS ${in} ${PROJECT_SOURCE_DIR}/cmake/GenNameTable.cmake)
  target_sources(${target} PRIVATE ${out_c} ${out_h})
  target_include_directories(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR})
endfunction()
