# Resource packs built at build time and linked into executables, read in place.
#
# epi_resource_pack(NAME <name> FOLDER <dir> [ID <id>] [EXCLUDE <regex>...] [RENAME <from> <to>...]
#                   [GENERATED <file> <path in pack>...] [TREES <dir>...] [DEPENDS <target or file>...])
#   Stages FOLDER's tree (less the top-level entries matching an EXCLUDE regex, with each top-level
#   folder <from> of RENAME stored as <to>), the GENERATED files at their paths in the pack and the
#   whole of each folder of TREES, made at build time, at the pack's root (a DEPENDS entry names
#   what makes them: a target, or a file touched when the folder is complete),
#   packs the stage with packtool into <binary dir>/<name>.prs, and makes the object library
#   <name> that holds the pack's bytes and registers them under ID (22000 by default) with
#   epiLinkedResources before main() runs. A changed, added or removed file rebuilds the pack and
#   relinks whatever links it. The pack file's path is left in <name>_FILE.
#
# epi_link_resources(<target> <name>)
#   Links the pack <name> into <target>: into an executable directly, and through a library into
#   every executable that links that library.
include_guard(GLOBAL)

function(epi_resource_pack)
    cmake_parse_arguments(P "" "NAME;FOLDER;ID" "EXCLUDE;RENAME;GENERATED;TREES;DEPENDS" ${ARGN})
    if(NOT P_NAME OR NOT P_FOLDER)
        message(FATAL_ERROR "epi_resource_pack: NAME and FOLDER are required")
    endif()
    set(script ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/StagePack.cmake)
    if(NOT P_ID)
        set(P_ID 22000)
    endif()
    if(NOT P_NAME MATCHES "^[A-Za-z_][A-Za-z0-9_]*$")
        message(FATAL_ERROR "epi_resource_pack: '${P_NAME}' can't name a symbol")
    endif()

    # The inputs: every file of the tree that is staged, and the generated files.
    file(GLOB_RECURSE inputs CONFIGURE_DEPENDS RELATIVE ${P_FOLDER} ${P_FOLDER}/*)
    set(depends)
    foreach(input ${inputs})
        string(REGEX MATCH "^[^/]+" top "${input}")
        set(skip FALSE)
        foreach(pattern ${P_EXCLUDE})
            if(top MATCHES "${pattern}")
                set(skip TRUE)
            endif()
        endforeach()
        if(NOT skip)
            list(APPEND depends ${P_FOLDER}/${input})
        endif()
    endforeach()
    set(generated_files)
    set(generated_pairs)
    list(LENGTH P_GENERATED count)
    if(count GREATER 0)
        math(EXPR last "${count} - 1")
        foreach(i RANGE 0 ${last} 2)
            math(EXPR j "${i} + 1")
            list(GET P_GENERATED ${i} source)
            list(GET P_GENERATED ${j} target)
            list(APPEND generated_files ${source})
            list(APPEND generated_pairs "${source}=${target}")
        endforeach()
    endif()

    set(dir ${CMAKE_CURRENT_BINARY_DIR}/${P_NAME})
    set(stage ${dir}/stage)
    set(pack ${CMAKE_CURRENT_BINARY_DIR}/${P_NAME}.prs)
    # Lists travel to the stage script with '|' between items.
    string(REPLACE ";" "|" exclude "${P_EXCLUDE}")
    string(REPLACE ";" "|" rename "${P_RENAME}")
    string(REPLACE ";" "|" pairs "${generated_pairs}")
    string(REPLACE ";" "|" trees "${P_TREES}")
    add_custom_command(OUTPUT ${pack}
        COMMAND ${CMAKE_COMMAND} -DSOURCE=${P_FOLDER} -DSTAGE=${stage} "-DEXCLUDE=${exclude}"
                "-DRENAME=${rename}" "-DGENERATED=${pairs}" "-DTREES=${trees}"
                -P ${script}
        COMMAND packtool ${stage} ${pack}
        DEPENDS ${depends} ${generated_files} ${P_DEPENDS} ${script}
                packtool
        COMMENT "Packing the resources of ${P_NAME}"
        VERBATIM)
    add_custom_target(${P_NAME}_prs DEPENDS ${pack})

    # The bytes, and the registration that runs before main().
    set(symbol epiPack_${P_NAME})
    set(asm ${dir}/${P_NAME}.S)
    set(registrar ${dir}/${P_NAME}.cpp)
    file(CONFIGURE OUTPUT ${asm} CONTENT "// The resource pack ${P_NAME}, as bytes of the executable.
    .section .rodata
    .balign 16
    .globl ${symbol}_begin
    .globl ${symbol}_end
${symbol}_begin:
    .incbin \"${pack}\"
${symbol}_end:

    .section .note.GNU-stack,\"\",@progbits
")
    file(CONFIGURE OUTPUT ${registrar} CONTENT "// Registers the resource pack ${P_NAME} under its id before main() runs.
#include \"epi/epiResources.h\"

extern \"C\" const unsigned char ${symbol}_begin[];
extern \"C\" const unsigned char ${symbol}_end[];

namespace
{
struct Registrar
{
    Registrar()
    {
        epiLinkedResources::add(${P_ID}, ${symbol}_begin, uint32_t(${symbol}_end - ${symbol}_begin));
    }
};
const Registrar registrar;
} // namespace
")
    add_library(${P_NAME} OBJECT ${asm} ${registrar})
    target_link_libraries(${P_NAME} PUBLIC epi)
    set_source_files_properties(${asm} PROPERTIES OBJECT_DEPENDS ${pack})
    add_dependencies(${P_NAME} ${P_NAME}_prs)
    set(${P_NAME}_FILE ${pack} PARENT_SCOPE)
endfunction()

function(epi_link_resources target name)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "EXECUTABLE")
        target_sources(${target} PRIVATE $<TARGET_OBJECTS:${name}>)
        target_link_libraries(${target} PRIVATE epi)
    else()
        # Object files named in a library's interface are linked into each executable that uses it,
        # where a static library would leave them out as nothing refers to them.
        target_link_libraries(${target} INTERFACE $<TARGET_OBJECTS:${name}> epi)
    endif()
    add_dependencies(${target} ${name})
endfunction()
