# Reads and checks what a package takes from its product: title, version, identifiers, vendor. They are in the
# file product.cmake of the product's folder FW_PRODUCT_RESOURCES (docs/for-vendors/packaging.md describes them,
# resources/uart/product.cmake is an example). A value given with -D takes precedence.

include("${FW_PRODUCT_RESOURCES}/product.cmake" OPTIONAL)
# Only the command line can say this.
set(FW_BENCH_PACKAGE "$CACHE{FW_BENCH_PACKAGE}")

# fw_check_product_value(NAME PATTERN DESCRIPTION): a value given with -D replaces that of product.cmake. The
# value that results must match PATTERN.
macro(fw_check_product_value name pattern description)
  if(NOT "$CACHE{${name}}" STREQUAL "")
    set(${name} "$CACHE{${name}}")
  endif()
  if(NOT "${${name}}" MATCHES "${pattern}")
    message(FATAL_ERROR "${name} is \"${${name}}\", but must be ${description}. Set it in "
      "${FW_PRODUCT_RESOURCES}/product.cmake, or with -D ${name}=...; see docs/for-vendors/packaging.md.")
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
fw_check_product_value(FW_PRODUCT_SLOT_SIZE "^([1-9][0-9]*|0x[0-9A-Fa-f]+)?$"
  "the size in bytes of the slot in an MCUboot unit, for example 0x38000, or nothing")

# A package for benches may skip the check of the unit's model. Nobody may take it for the other one, and both
# can be installed side by side.
if(FW_BENCH_PACKAGE)
  string(APPEND FW_PRODUCT_TITLE " (bench)")
  string(APPEND FW_PRODUCT_PACKAGE "-bench")
  string(APPEND FW_PRODUCT_ID ".bench")
endif()
