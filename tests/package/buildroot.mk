# What treescope.mk uses of Buildroot: "make -f" this file, with the variables that
# recipes.py gives.
.DEFAULT_GOAL := print
INSTALL = install
TREESCOPE_PKGDIR = $(BR2_EXTERNAL_TREESCOPE_PATH)/package/treescope
include $(BR2_EXTERNAL_TREESCOPE_PATH)/external.mk

define newline


endef
hooks = $(foreach hook,$(1),$($(hook))$(newline))

print:
	@printf '%s\n' $(TREESCOPE_CONF_OPTS)
	@test -d '$(TREESCOPE_SITE)/platform' -a '$(TREESCOPE_SITE_METHOD)' = local

# After cmake --install.
finish: $(if $(BR2_INIT_SYSTEMD),systemd,sysv)
	$(call hooks,$(TREESCOPE_POST_INSTALL_TARGET_HOOKS))
systemd:
	$(TREESCOPE_INSTALL_INIT_SYSTEMD)
sysv:
	$(TREESCOPE_INSTALL_INIT_SYSV)
users:
	@printf '%s\n' '$(strip $(TREESCOPE_USERS))'
