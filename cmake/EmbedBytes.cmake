# cmake -DINPUT=<file> -DOUTPUT=<file> -P EmbedBytes.cmake
#
# Writes the bytes of a file as the elements of an array in C++.
file(READ ${INPUT} bytes HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
file(WRITE ${OUTPUT} "${bytes}\n")
