################################################################################
#
# treescope
#
################################################################################

TREESCOPE_VERSION = 0.1.0
# The sources are those that this directory is a part of.
TREESCOPE_SITE = $(BR2_EXTERNAL_TREESCOPE_PATH)/../..
TREESCOPE_SITE_METHOD = local
# No licence has been chosen.
TREESCOPE_REDISTRIBUTE = NO
TREESCOPE_INSTALL_STAGING = YES
TREESCOPE_DEPENDENCIES = json-for-modern-cpp
TREESCOPE_CONF_OPTS = \
	-DCMAKE_SKIP_RPATH=ON \
	-DTREESCOPE_PYTHON_DIR=lib/python$(PYTHON3_VERSION_MAJOR)/site-packages \
	-DTREESCOPE_PYTHON_LIBRARY=libtreescope.so.0

ifeq ($(BR2_PACKAGE_TREESCOPE_MODELGATE),y)
TREESCOPE_DEPENDENCIES += cli11 libcbor mosquitto openssl
TREESCOPE_CONF_OPTS += -DTREESCOPE_GATEWAY=ON
else
TREESCOPE_CONF_OPTS += -DTREESCOPE_GATEWAY=OFF
endif

ifeq ($(BR2_PACKAGE_TREESCOPE_PYTHON),y)
TREESCOPE_DEPENDENCIES += python3
else
define TREESCOPE_REMOVE_PYTHON
	rm -rf $(TARGET_DIR)/usr/lib/python*/site-packages/treescope
endef
TREESCOPE_POST_INSTALL_TARGET_HOOKS += TREESCOPE_REMOVE_PYTHON
endif

ifeq ($(BR2_PACKAGE_TREESCOPE_MODELSRVD),y)
# The members of the group may connect.
define TREESCOPE_USERS
	modelsrvd -1 modelsrvd -1 * - - - Model server
endef

define TREESCOPE_INSTALL_INIT_SYSTEMD
	sed 's:@CMAKE_INSTALL_FULL_BINDIR@:/usr/bin:' $(@D)/packaging/modelsrvd.service.in \
		>$(@D)/modelsrvd.service
	$(INSTALL) -D -m 644 $(@D)/modelsrvd.service \
		$(TARGET_DIR)/usr/lib/systemd/system/modelsrvd.service
endef

define TREESCOPE_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 755 $(TREESCOPE_PKGDIR)/S60modelsrvd \
		$(TARGET_DIR)/etc/init.d/S60modelsrvd
endef
else
define TREESCOPE_REMOVE_MODELSRVD
	rm -f $(TARGET_DIR)/usr/bin/modelsrvd $(TARGET_DIR)/usr/share/man/man8/modelsrvd.8
endef
TREESCOPE_POST_INSTALL_TARGET_HOOKS += TREESCOPE_REMOVE_MODELSRVD
endif

$(eval $(cmake-package))
