# kiv_add_data_resource(target file): puts a file into a program as its data resource, which KivHasDataResource finds.
# Windows: the resource "KIV_DATA" of the type with the name "RT_RCDATA". Linux: an ELF note of the owner "KIV_DATA".
if(WIN32)
  enable_language(RC)
endif()

function(kiv_add_data_resource target file)
  get_filename_component(path ${file} ABSOLUTE)
  if(WIN32)
    set(source ${CMAKE_CURRENT_BINARY_DIR}/${target}_kiv_data.rc)
    file(CONFIGURE OUTPUT ${source} CONTENT "KIV_DATA RT_RCDATA \"${path}\"\n" @ONLY)
  else()
    set(source ${CMAKE_CURRENT_BINARY_DIR}/${target}_kiv_data.cpp)
    # Owner size, content size, type, owner, content; each padded to 4 bytes.
    file(CONFIGURE OUTPUT ${source} @ONLY CONTENT [[
asm(R"(
  .pushsection .note.KIV_DATA, "a", @note
  .balign 4
  .long 2f - 1f, 4f - 3f, 1
1: .asciz "KIV_DATA"
2: .balign 4
3: .incbin "@path@"
4: .balign 4
  .popsection
)");
]])
  endif()
  set_source_files_properties(${source} PROPERTIES OBJECT_DEPENDS ${path})
  target_sources(${target} PRIVATE ${source})
endfunction()
