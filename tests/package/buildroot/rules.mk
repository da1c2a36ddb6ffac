# As much of a build tree as a package's description is read by: what it calls, and the steps of it that put files and
# scripts into a package. DESTINATION is where they go.
INCLUDE_DIR := $(TOPDIR)/include
INSTALL_DIR := install -d -m0755
INSTALL_BIN := install -m0755
INSTALL_DATA := install -m0644
CP := cp -fpR
