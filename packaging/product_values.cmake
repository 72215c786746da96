# The version of the program, and what its packages take from the product that they carry: title, version,
# identifiers, vendor. A product states these in product.cmake, in its folder (docs/for-vendors/packaging.md
# describes them, resources/uart/product.cmake is an example). A value given with -D takes precedence.

# Of the program itself, for its log and for the package of bundle_check.
set(FW_VERSION 1.0.0)
set(FW_VENDOR "Kelvane")
set(FW_CONTACT "Kelvane Support <support@kelvane.example>")
set(FW_HOMEPAGE "https://kelvane.example")
set(FW_BUNDLE_CHECK_PACKAGE kelvane-bundle-check)

set(FW_PRODUCT_RESOURCES "" CACHE PATH
  "The resource directory of the product to package; if not set, a demonstration's")

if(FW_PRODUCT_RESOURCES AND NOT EXISTS "${FW_PRODUCT_RESOURCES}/config.ini")
  message(FATAL_ERROR "FW_PRODUCT_RESOURCES: there is no ${FW_PRODUCT_RESOURCES}/config.ini")
endif()
set(fw_product_folder "${FW_PRODUCT_RESOURCES}")
if(NOT fw_product_folder)
  set(fw_product_folder "${CMAKE_CURRENT_LIST_DIR}/../resources/uart")
endif()
include("${fw_product_folder}/product.cmake" OPTIONAL)

# fw_check_product_value(NAME PATTERN DESCRIPTION): a value given with -D replaces that of product.cmake;
# whichever holds must match.
macro(fw_check_product_value name pattern description)
  if(NOT "$CACHE{${name}}" STREQUAL "")
    set(${name} "$CACHE{${name}}")
  endif()
  if(NOT "${${name}}" MATCHES "${pattern}")
    message(FATAL_ERROR "${name} is \"${${name}}\", but must be ${description}. Set it in "
      "${fw_product_folder}/product.cmake, or with -D ${name}=...; see docs/for-vendors/packaging.md.")
  endif()
endmacro()

# These texts go into file names, XML, desktop entries and CMake code as they are.
set(fw_text "^[^][\"'`/\\\\:;<>&@\$%\n ]+( [^][\"'`/\\\\:;<>&@\$%\n ]+)*$")
fw_check_product_value(FW_PRODUCT_TITLE "${fw_text}"
  "the program's name for this product, without quotation marks and none of / \\ : ; < > & @ $ %")
fw_check_product_value(FW_PRODUCT_VENDOR "${fw_text}"
  "the vendor's name, without quotation marks and none of / \\ : ; < > & @ $ %")
fw_check_product_value(FW_PRODUCT_VERSION "^[0-9]+\\.[0-9]+(\\.[0-9]+)*$"
  "the firmware's version, two or more numbers with dots between them, for example 3.1.0")
fw_check_product_value(FW_PRODUCT_PACKAGE "^[a-z0-9][a-z0-9+.-]+$"
  "the package's name, of lower-case letters, digits and - + ., for example nordvik-tide-updater")
fw_check_product_value(FW_PRODUCT_ID "^[A-Za-z][A-Za-z0-9-]*(\\.[A-Za-z][A-Za-z0-9-]*)+$"
  "an identifier that nobody else uses, for example com.nordvik.tideupdater")
fw_check_product_value(FW_PRODUCT_CONTACT "^[^<>\n]+ <[^<>@ ]+@[^<>@ ]+>$"
  "the name and mail address of your support, for example Nordvik Support <support@nordvik.example>")
fw_check_product_value(FW_PRODUCT_HOMEPAGE "^https?://[^\"'`<>& ]+$" "a web address of the product")
