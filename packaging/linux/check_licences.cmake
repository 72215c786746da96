# cpack runs this on the files that it is about to pack. A copyright file that names a licence's text must
# come with that text.
file(GLOB copyrights "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share/doc/*/copyright")
foreach(copyright IN LISTS copyrights)
  file(STRINGS "${copyright}" paths REGEX "/usr/")
  string(REGEX MATCHALL "/usr/[^ ;,\"]*[^ ;,.\"]" paths "${paths}")
  foreach(path IN LISTS paths)
    # Every Debian system has the texts of the common licences.
    if(NOT path MATCHES "^/usr/share/common-licenses/"
        AND NOT EXISTS "${CPACK_TEMPORARY_INSTALL_DIRECTORY}${path}")
      message(FATAL_ERROR "The copyright file names ${path}, but the package does not contain it. See "
        "FW_PRODUCT_COPYRIGHT in docs/for-vendors/packaging.md.")
    endif()
  endforeach()
endforeach()
