SUMMARY = "Tarn protocol over CAN for embedded Linux controllers"
DESCRIPTION = "A library that packs typed register values into CAN frames, routes received ones to handlers and \
sends requests; buses for raw CAN frames below it, and a command line above."
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=91e85472326c5c3b0b5fc08e6b066036"

# Where your copy of the sources lives, and which commit is the release, is for your distribution to say:
#   PLEXA_TARN_SOURCE = "git://git.example.com/plexa_tarn.git;protocol=https;branch=main"
#   SRCREV:pn-plexa-tarn = "..."
PLEXA_TARN_SOURCE ?= ""
SRC_URI = "${PLEXA_TARN_SOURCE}"
S = "${WORKDIR}/git"

DEPENDS = "libpcap poco"

inherit cmake pkgconfig

PACKAGECONFIG ??= "tools"
PACKAGECONFIG[tools] = "-DPLEXA_BUILD_TOOLS=ON,-DPLEXA_BUILD_TOOLS=OFF,cli11 ncurses rapidjson"

EXTRA_OECMAKE = "-DPLEXA_BUILD_TESTS=OFF -DPLEXA_BUILD_EXAMPLES=OFF -DCMAKE_SKIP_INSTALL_RPATH=ON"

PACKAGES =+ "libplexa-common libplexa-can tarn-tools"
FILES:libplexa-common = "${libdir}/libplexa_common.so.*"
FILES:libplexa-can = "${libdir}/libplexa_can.so.*"
FILES:tarn-tools = "${bindir}/tarn ${datadir}/bash-completion ${datadir}/tarn"
RDEPENDS:tarn-tools:append = " ncurses-terminfo-base"

BBCLASSEXTEND = "native nativesdk"
