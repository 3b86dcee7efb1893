# SPDX-License-Identifier: MIT
SUMMARY = "Embeddable RTSP server for live video and audio"
DESCRIPTION = "A shared library. A host application pushes RTP packets, and players connect to it."
SECTION = "libs/multimedia"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=c1fcaeefa6ce2fd202f308cf9a963a71"

# The archive of the sources lies in files/ next to this recipe; packaging/README.md says how to make it.
SRC_URI = "file://${BP}.tar.gz"

inherit cmake

EXTRA_OECMAKE = " \
    -DRTSPSERVER_BUILD_STATIC=OFF \
    -DRTSPSERVER_BUILD_TESTS=OFF \
    -DRTSPSERVER_BUILD_EXAMPLES=OFF \
"
