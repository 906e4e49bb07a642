# Fails when a language of the preferences program lacks one of its texts.
file(GLOB_RECURSE sources ${FOLDER}/*.cpp ${FOLDER}/*.h)
file(GLOB languages ${FOLDER}/po/*.po)
foreach(language ${languages})
  execute_process(COMMAND ${XGETTEXT} --from-code=UTF-8 --keyword --keyword=tr --keyword=trn:1,2 --keyword=marked --output=- ${sources}
                  COMMAND ${MSGCMP} ${language} /dev/stdin
                  RESULTS_VARIABLE statuses)
  if(NOT statuses STREQUAL "0;0")
    message(FATAL_ERROR "${language} is not complete.")
  endif()
endforeach()
