# Installs the documents in the folder `documents`, and beside them the files of the
# sources that they link to, so that their links lead somewhere. `sources` is the root
# of both.
file(INSTALL ${sources}/README.md ${sources}/docs DESTINATION ${documents})
file(GLOB pages ${sources}/docs/*.md)
foreach(page IN LISTS pages)
  file(READ ${page} text)
  string(REGEX MATCHALL "\\(\\.\\./[^)#]+" links "${text}")
  foreach(link IN LISTS links)
    string(REPLACE "(../" "" file ${link})
    cmake_path(GET file PARENT_PATH folder)
    file(INSTALL ${sources}/${file} DESTINATION ${documents}/${folder})
  endforeach()
endforeach()
