# Mirrors resources/ into the build tree's share/velt-compressor/, where the program looks for
# its icons beside its own executable. Nothing to do before the folder exists.
# Usage: cmake -DSOURCE=<resources> -DDESTINATION=<share/velt-compressor> -P copy_resources.cmake
if(EXISTS "${SOURCE}")
    file(COPY "${SOURCE}/" DESTINATION "${DESTINATION}")
endif()
