################################################################################
#
# mavkit
#
################################################################################

# The sources are the tree that this file stands in.
MAVKIT_VERSION = 1.0.0
MAVKIT_SITE = $(BR2_EXTERNAL_MAVKIT_PATH)/../..
MAVKIT_SITE_METHOD = local
MAVKIT_LICENSE = MIT
MAVKIT_LICENSE_FILES = LICENSE
MAVKIT_INSTALL_STAGING = YES
# BUILD_SHARED_LIBS, which Buildroot sets, decides about the shared library.
MAVKIT_CONF_OPTS = \
	-DMAVKIT_TESTS=OFF \
	-DMAVKIT_EXAMPLES=OFF \
	-DMAVKIT_TOOLS=$(if $(BR2_PACKAGE_MAVKIT_TOOLS),ON,OFF)

$(eval $(cmake-package))
