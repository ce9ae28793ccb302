# cmake -DFILE=path -P print_size.cmake: prints the size of a built file, so
# that the figure always comes from the binary itself.
file(SIZE "${FILE}" bytes)
message("web: ${bytes} bytes stripped (${FILE})")
