SUMMARY = "Toolkit of the resident applications of an embedded Linux terminal"
DESCRIPTION = "Traces and logs, message queues and shared memory between processes, packed-BCD \
times and calendar arithmetic, encodings, and helpers for files and directories."
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=45ce462554a79b5437ee3c111bd4983f"

inherit cmake externalsrc

# The sources are the tree that this recipe stands in. Where it is copied into a layer, name the
# tree in the configuration: EXTERNALSRC:pn-mavkit = "/path/to/mavkit".
EXTERNALSRC ?= "${THISDIR}/../.."
EXTERNALSRC_BUILD ?= "${WORKDIR}/build"

EXTRA_OECMAKE = "-DMAVKIT_SHARED=ON -DMAVKIT_TESTS=OFF -DMAVKIT_EXAMPLES=OFF"

# mavutil in a package of its own; the rest goes where its kind goes.
PACKAGE_BEFORE_PN = "${PN}-tools"
FILES:${PN}-tools = "${bindir}/mavutil ${datadir}/bash-completion"
