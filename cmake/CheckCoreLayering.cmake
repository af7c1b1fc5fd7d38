# Fails when a source of kavel_core includes a widget or MLT header. kavel_core is what
# the CLI, the server-side tools and the tests link; it must run without a display and
# without the media engine.
set(core_dirs model timing service editor playback export)
set(offenders "")
foreach(dir IN LISTS core_dirs)
    file(GLOB_RECURSE sources "${SOURCE_DIR}/${dir}/*.h" "${SOURCE_DIR}/${dir}/*.cpp")
    foreach(source IN LISTS sources)
        file(STRINGS "${source}" includes REGEX "^[ \t]*#[ \t]*include")
        foreach(line IN LISTS includes)
            if(line MATCHES "<(QtWidgets/|QWidget|QApplication|QMainWindow|QDialog|mlt|framework/mlt)"
               OR line MATCHES "\"(app|ui)/")
                list(APPEND offenders "${source}: ${line}")
            endif()
        endforeach()
    endforeach()
endforeach()
if(offenders)
    list(JOIN offenders "\n  " text)
    message(FATAL_ERROR "kavel_core must not include widget or MLT headers:\n  ${text}")
endif()
message(STATUS "kavel_core layering: ok")
