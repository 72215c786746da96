# The package of this demonstration product. This file is not part of it.
set(FW_PRODUCT_TITLE "Kelvane Viola Updater")
set(FW_PRODUCT_VERSION 3.2.1)
set(FW_PRODUCT_PACKAGE kelvane-viola-updater)
set(FW_PRODUCT_ID com.kelvane.violaupdater)
set(FW_PRODUCT_VENDOR "Kelvane")
set(FW_PRODUCT_CONTACT "Kelvane Support <support@kelvane.example>")
set(FW_PRODUCT_HOMEPAGE "https://kelvane.example")

# Further paragraphs for Debian's copyright file. @resources@ is the directory in which the product's files
# are installed.
set(FW_PRODUCT_COPYRIGHT [[
Files: @resources@/KelvaneSans-*.otf
Copyright: 2016 The Inter Project Authors
License: OFL-1.1
 Derived from Inter under the SIL Open Font License, version 1.1. The full
 text is in /@resources@/KelvaneSans-LICENCE.txt.
]])
