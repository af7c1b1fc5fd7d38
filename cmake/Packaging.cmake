# Debian packages of the installed components: `cpack` in a build folder writes
# kavel_<version>_<arch>.deb, kavel-cli_… and kavel-server_… to <build>/packages.
# The version is the project's; libraries are found by dpkg-shlibdeps, and the
# programs the code only runs when they are there are named as Recommends.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kavel)
set(CPACK_PACKAGE_VENDOR "Kavel developers")
set(CPACK_PACKAGE_CONTACT "Kavel developers <kavel@example.org>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
# Always /usr, whatever prefix the build folder was configured with.
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL kavel kavel-cli kavel-server)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "")

set(CPACK_DEBIAN_KAVEL_PACKAGE_NAME kavel)
# The window needs Qt's X11 and SVG plugins and MLT's profiles, which no library
# link names.
set(CPACK_DEBIAN_KAVEL_PACKAGE_DEPENDS "qt6-qpa-plugins, libqt6svg6, libmlt-data")
set(CPACK_DEBIAN_KAVEL_PACKAGE_RECOMMENDS
    "kavel-server, ffmpeg | lame, fonts-noto-cjk, breeze-icon-theme, qt6-translations-l10n")
set(CPACK_DEBIAN_KAVEL_PACKAGE_SUGGESTS "kavel-cli, melt")
set(CPACK_COMPONENT_KAVEL_DESCRIPTION "video editor that cuts recordings by editing their transcript
Kavel imports recordings, has their speech transcribed by the Kavel
transcription service, and cuts the media as the transcript is edited:
deleting words cuts them, dragging paragraphs reorders them. The result is
exported as a movie, an audio file, subtitles and a project file for other
editors.")

set(CPACK_DEBIAN_KAVEL-CLI_PACKAGE_NAME kavel-cli)
set(CPACK_DEBIAN_KAVEL-CLI_PACKAGE_DEPENDS "libmlt-data")
set(CPACK_DEBIAN_KAVEL-CLI_PACKAGE_RECOMMENDS "ffmpeg | lame")
set(CPACK_DEBIAN_KAVEL-CLI_PACKAGE_SUGGESTS "kavel-server")
set(CPACK_COMPONENT_KAVEL-CLI_DESCRIPTION "command-line tool for Kavel projects
kavel-cli works on the project bundles of the Kavel editor without a window:
it creates projects, imports and transcribes recordings, edits transcripts in
a batch, searches them and exports the edited result as a movie, sound and
subtitles.")

set(CPACK_DEBIAN_KAVEL-SERVER_PACKAGE_NAME kavel-server)
set(CPACK_DEBIAN_KAVEL-SERVER_PACKAGE_SECTION net)
set(CPACK_DEBIAN_KAVEL-SERVER_PACKAGE_DEPENDS "adduser, pocketsphinx-en-us, python3")
set(CPACK_DEBIAN_KAVEL-SERVER_PACKAGE_SUGGESTS "postgresql")
set(CPACK_DEBIAN_KAVEL-SERVER_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/debian/conffiles
    ${PROJECT_SOURCE_DIR}/packaging/debian/postinst
    ${PROJECT_SOURCE_DIR}/packaging/debian/postrm)
set(CPACK_COMPONENT_KAVEL-SERVER_DESCRIPTION "sign-in and speech-recognition service for Kavel
kavel-server answers the Kavel editor's sign-in and transcription requests
and recognises speech offline with PocketSphinx, on one SQLite file or, for a
team, as several API nodes and workers on one PostgreSQL database. It comes
with a systemd unit (off until enabled), health checks and Prometheus
metrics.")

include(CPack)
