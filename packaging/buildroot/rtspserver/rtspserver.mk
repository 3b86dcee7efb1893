################################################################################
#
# rtspserver
#
################################################################################

RTSPSERVER_VERSION = 1.0.0
RTSPSERVER_SITE = $(call qstrip,$(BR2_PACKAGE_RTSPSERVER_SOURCES))
RTSPSERVER_SITE_METHOD = local
RTSPSERVER_LICENSE = MIT
RTSPSERVER_LICENSE_FILES = LICENSE
RTSPSERVER_INSTALL_STAGING = YES
RTSPSERVER_CONF_OPTS = \
	-DRTSPSERVER_BUILD_STATIC=OFF \
	-DRTSPSERVER_BUILD_TESTS=OFF \
	-DRTSPSERVER_BUILD_EXAMPLES=OFF

$(eval $(cmake-package))
