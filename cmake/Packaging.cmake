# The Debian package (`make deb`): built by CPack's DEB generator from the
# same install rules as `cmake --install`, so there is no second list of
# files to keep in step; dpkg-shlibdeps computes Depends from the binary.
#
# The manual page, the completions, the systemd user unit and the autostart
# entry are written by the built binary itself (`klipora manual`, `klipora
# service print-…`), so they always match the command they describe.
set(dist ${CMAKE_BINARY_DIR}/dist)
set(klipora_generated
    ${dist}/klipora.1.gz ${dist}/klipora.bash ${dist}/_klipora ${dist}/klipora.service
    ${dist}/klipora.desktop ${dist}/changelog.gz)
configure_file(${CMAKE_SOURCE_DIR}/packaging/changelog ${dist}/changelog @ONLY)
add_custom_command(
  OUTPUT ${klipora_generated}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${dist}
  COMMAND $<TARGET_FILE:klipora> manual --format man > ${dist}/klipora.1
  COMMAND gzip -9nf ${dist}/klipora.1
  COMMAND $<TARGET_FILE:klipora> manual --format bash > ${dist}/klipora.bash
  COMMAND $<TARGET_FILE:klipora> manual --format zsh > ${dist}/_klipora
  COMMAND $<TARGET_FILE:klipora> service print-unit --binary ${CMAKE_INSTALL_PREFIX}/bin/klipora
          > ${dist}/klipora.service
  COMMAND $<TARGET_FILE:klipora> service print-autostart
          --binary ${CMAKE_INSTALL_PREFIX}/bin/klipora > ${dist}/klipora.desktop
  COMMAND gzip -9nc ${dist}/changelog > ${dist}/changelog.gz
  DEPENDS klipora ${dist}/changelog
  COMMENT "Writing the manual page, completions and user unit from klipora itself"
  VERBATIM)
add_custom_target(klipora_dist ALL DEPENDS ${klipora_generated})

install(FILES ${dist}/klipora.1.gz DESTINATION share/man/man1)
install(FILES ${dist}/klipora.bash DESTINATION share/bash-completion/completions RENAME klipora)
install(FILES ${dist}/_klipora DESTINATION share/zsh/vendor-completions)
install(FILES ${dist}/klipora.service DESTINATION lib/systemd/user)
# A template for administrators who want Klipora in every session
# (/etc/xdg/autostart); `klipora service enable` writes the user's own.
install(FILES ${dist}/klipora.desktop DESTINATION share/klipora)
install(FILES ${CMAKE_SOURCE_DIR}/packaging/copyright ${dist}/changelog.gz
        DESTINATION share/doc/klipora)

# `make deb` builds what the package holds itself; packing must not build
# every test first.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME klipora)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Klipora developers <developers@klipora.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "screenshot library for Linux desktops")
set(CPACK_PACKAGE_DESCRIPTION
    "Klipora watches the folders that screenshot tools save into, takes each new
image into a library of its own, reads the text in it with Tesseract, files
it into a category and keeps tags, saved searches, a trash and markup.
The klipora command drives the library; `klipora run` is its daemon, which
`klipora service enable` starts at log-in as a systemd user service.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Read at run time, so no shared library names them: the English text model
# and the fonts that markup text is drawn with.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "tesseract-ocr-eng")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "fonts-dejavu-core")
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
include(CPack)
