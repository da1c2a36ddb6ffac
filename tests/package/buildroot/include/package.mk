# A field that every package has must be there after its description was evaluated.
define check_fields
$(eval TITLE :=)$(eval DEPENDS :=)$(eval $(Package/$(1)))
$(if $(TITLE),,$(error $(1) has no title))$(if $(DEPENDS),,$(error $(1) depends on nothing))
$(if $(PKG_LICENSE),,$(error no licence))$(if $(PKG_MAINTAINER),,$(error no maintainer))$(if $(URL),,$(error no address))
endef

# As in a build tree, the installation's lines are expanded twice and the scripts once.
define BuildPackage
$(call check_fields,$(1))
V_postinst := $$(Package/$(1)/postinst)
V_prerm := $$(Package/$(1)/prerm)
V_conffiles := $$(Package/$(1)/conffiles)
install-$(1):
$(call Package/$(1)/install,$(DESTINATION))
control-$(1): export V_postinst := $$(V_postinst)
control-$(1): export V_prerm := $$(V_prerm)
control-$(1): export V_conffiles := $$(V_conffiles)
control-$(1):
	printenv V_postinst > $(DESTINATION)/postinst
	printenv V_prerm > $(DESTINATION)/prerm
	printenv V_conffiles > $(DESTINATION)/conffiles
endef
