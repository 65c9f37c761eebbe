# Makes the interface's art folder OUT from scratch: the fonts into OUT/fonts, the images into
# OUT/images, then every file of OVERRIDES copied over at the same relative path, so that a hand-made
# file replaces the generated one. Touches STAMP when all went well.
#
# Called by the build with -DFONTGEN=... -DARTGEN=... -DOUT=... -DOVERRIDES=... -DSTAMP=...
file(REMOVE_RECURSE ${OUT})
file(MAKE_DIRECTORY ${OUT}/fonts ${OUT}/images)
foreach(step "${FONTGEN};${OUT}/fonts" "${ARTGEN};${OUT}/images")
    execute_process(COMMAND ${step} RESULT_VARIABLE rc)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "${step}: failed (${rc})")
    endif()
endforeach()
if(IS_DIRECTORY ${OVERRIDES})
    file(GLOB_RECURSE overrides RELATIVE ${OVERRIDES} ${OVERRIDES}/*)
    foreach(file ${overrides})
        get_filename_component(dir ${OUT}/${file} DIRECTORY)
        file(COPY ${OVERRIDES}/${file} DESTINATION ${dir})
        message(STATUS "art: ${file} taken from ${OVERRIDES}")
    endforeach()
endif()
file(TOUCH ${STAMP})
