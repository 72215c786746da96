# Runs bundle_check on the bundle that is about to be packed, and stops if it finds an error. Needs
#   FW_BUNDLE_CHECK       the program
#   bundle                the bundle: the folder that contains Contents
#   FW_PRODUCT_VERSION    the version of the package
#   FW_PRODUCT_SLOT_SIZE  the size of the unit's slot in bytes, or empty
#   FW_BENCH_PACKAGE      true: the package is for benches and may carry firmware that is not for customers

set(rules --package-version "${FW_PRODUCT_VERSION}")
if(NOT FW_BENCH_PACKAGE)
  list(APPEND rules --for-customers)
endif()
if(FW_PRODUCT_SLOT_SIZE)
  list(APPEND rules --slot-size ${FW_PRODUCT_SLOT_SIZE})
endif()
execute_process(COMMAND "${FW_BUNDLE_CHECK}" ${rules} "${bundle}"
  RESULT_VARIABLE status OUTPUT_VARIABLE report ERROR_VARIABLE report TIMEOUT 120)
# Exit status 1 means that there are only warnings.
message("bundle_check:\n${report}")
if(NOT status MATCHES "^[01]$")
  message(FATAL_ERROR "No package is made, because bundle_check found errors; correct them (see its report "
    "above). For firmware that is not for customers use --bench, which allows nothing else.")
endif()
