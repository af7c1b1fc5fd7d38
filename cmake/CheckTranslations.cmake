# Fails when the English translation lags behind the sources: a text in src/ that
# i18n/kavel_en.ts does not hold yet, one still marked unfinished, or an entry whose text
# is gone from the sources. The check runs lupdate on a copy, so the tree is untouched;
# scripts/update-translations makes the same update in place.
#   cmake -DSOURCE_DIR=<repo> -DLUPDATE=<lupdate> -DWORK_DIR=<scratch> -P CheckTranslations.cmake
cmake_minimum_required(VERSION 3.25)
set(ts ${SOURCE_DIR}/i18n/kavel_en.ts)
if(NOT EXISTS ${ts})
    message(FATAL_ERROR "${ts} is missing")
endif()
file(MAKE_DIRECTORY ${WORK_DIR})
set(copy ${WORK_DIR}/kavel_en.ts)
file(COPY_FILE ${ts} ${copy})
execute_process(
    COMMAND ${LUPDATE} -silent -locations none -source-language zh_CN -target-language en
            ${SOURCE_DIR}/src -ts ${copy}
    RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "lupdate failed (${status})")
endif()
file(READ ${copy} text)
# One <message> per entry; its <source> names it and its <translation> says its state.
set(problems "")
set(total 0)
while(TRUE)
    string(FIND "${text}" "</message>" end)
    if(end EQUAL -1)
        break()
    endif()
    string(SUBSTRING "${text}" 0 ${end} entry)
    math(EXPR next "${end} + 10")
    string(SUBSTRING "${text}" ${next} -1 text)
    math(EXPR total "${total} + 1")
    if(entry MATCHES "<translation type=\"(unfinished|vanished|obsolete)\"")
        set(state ${CMAKE_MATCH_1})
        string(FIND "${entry}" "<source>" start REVERSE)
        string(SUBSTRING "${entry}" ${start} 200 source)
        string(REGEX REPLACE "</source>.*" "" source "${source}")
        string(REPLACE "<source>" "" source "${source}")
        string(REPLACE ";" "," source "${source}")
        list(APPEND problems "  ${state}: ${source}")
    endif()
endwhile()
if(problems)
    list(LENGTH problems count)
    list(JOIN problems "\n" listing)
    message(FATAL_ERROR "${count} of ${total} English texts need work "
                        "(run scripts/update-translations, then translate them in "
                        "i18n/kavel_en.ts):\n${listing}")
endif()
message(STATUS "${total} English texts, all translated")
