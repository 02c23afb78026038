# cmake -DBROWSER=chromium|firefox -DSOURCE_DIR=extension -DOUT_DIR=DIR -DARCHIVE=FILE -DFILES=a.js,b.js
#       -DCRX_TOOL=passway-crx -DEXTENSION_KEY=KEY.pem -P make_extension.cmake
#
# Makes one browser's extension from the one source tree: OUT_DIR gets FILES as they are and manifest.json,
# which is manifest.base.json with the members of its "browsers" object for BROWSER laid over the top level
# (and the "browsers" object itself left out); ARCHIVE (a zip file, the files at its root) packs OUT_DIR.
# Chromium's manifest gets the "key" of EXTENSION_KEY (it fixes the ID); its zip is also packed as a CRX3
# signed with that key, passway-chromium.crx beside ARCHIVE, with the ID in chromium-id.txt.
foreach(variable BROWSER SOURCE_DIR OUT_DIR ARCHIVE FILES CRX_TOOL EXTENSION_KEY)
  if(NOT DEFINED ${variable})
    message(FATAL_ERROR "make_extension.cmake: ${variable} is not set")
  endif()
endforeach()
string(REPLACE "," ";" FILES "${FILES}")

file(READ "${SOURCE_DIR}/manifest.base.json" manifest)
string(JSON overlay ERROR_VARIABLE missing GET "${manifest}" browsers ${BROWSER})
if(missing)
  message(FATAL_ERROR "manifest.base.json: no \"browsers\".\"${BROWSER}\" object (${missing})")
endif()
string(JSON manifest REMOVE "${manifest}" browsers)
string(JSON count LENGTH "${overlay}")
math(EXPR last "${count} - 1")
foreach(index RANGE ${last})
  string(JSON key MEMBER "${overlay}" ${index})
  string(JSON value GET "${overlay}" ${key})
  string(JSON type TYPE "${overlay}" ${key})
  if(type STREQUAL "STRING")  # GET gives a string's text; SET wants it as JSON
    string(REPLACE "\\" "\\\\" value "${value}")
    string(REPLACE "\"" "\\\"" value "${value}")
    set(value "\"${value}\"")
  endif()
  string(JSON manifest SET "${manifest}" ${key} "${value}")
endforeach()

if(BROWSER STREQUAL "chromium")
  execute_process(COMMAND "${CRX_TOOL}" key "${EXTENSION_KEY}" OUTPUT_VARIABLE key_and_id COMMAND_ERROR_IS_FATAL ANY)
  if(NOT key_and_id MATCHES "^([A-Za-z0-9+/=]+)\n([a-p]+)\n$")
    message(FATAL_ERROR "passway-crx key ${EXTENSION_KEY} said: ${key_and_id}")
  endif()
  set(manifest_key "${CMAKE_MATCH_1}")
  set(extension_id "${CMAKE_MATCH_2}")
  string(JSON manifest SET "${manifest}" key "\"${manifest_key}\"")
endif()

file(REMOVE_RECURSE "${OUT_DIR}")  # nothing stale from an earlier file list
file(MAKE_DIRECTORY "${OUT_DIR}")
foreach(name IN LISTS FILES)
  get_filename_component(folder "${OUT_DIR}/${name}" DIRECTORY)  # icons/ keep their folder
  file(COPY "${SOURCE_DIR}/${name}" DESTINATION "${folder}")
  file(TOUCH_NOCREATE "${OUT_DIR}/${name}")  # newer than the sources: the build sees it made
endforeach()
file(WRITE "${OUT_DIR}/manifest.json" "${manifest}\n")

# The archive: the files at its root, stamped with a fixed time so that the same sources give the same bytes.
file(REMOVE "${ARCHIVE}")
execute_process(COMMAND "${CMAKE_COMMAND}" -E tar cf "${ARCHIVE}" --format=zip --mtime=2016-04-29 manifest.json ${FILES}
                WORKING_DIRECTORY "${OUT_DIR}" COMMAND_ERROR_IS_FATAL ANY)

if(BROWSER STREQUAL "chromium")
  get_filename_component(packed "${ARCHIVE}" DIRECTORY)
  execute_process(COMMAND "${CRX_TOOL}" pack "${EXTENSION_KEY}" "${ARCHIVE}" "${packed}/passway-chromium.crx"
                  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(WRITE "${packed}/chromium-id.txt" "${extension_id}\n")
endif()
