SUMMARY = "Shell and tools for the data trees of model servers"
DESCRIPTION = "An interactive shell and a tool for scripts that read, write and watch the values of \
a running device; modelsrvd, which publishes them; and the libraries for C++, C and Python."
SECTION = "console/utils"

# No licence has been chosen.
LICENSE = "CLOSED"

# All but nlohmann-json are for modelgate.
DEPENDS = "nlohmann-json cli11 libcbor mosquitto openssl"

inherit cmake externalsrc python3-dir systemd useradd

# The sources are those that this layer is a part of.
EXTERNALSRC ?= "${@os.path.realpath(os.path.join(d.getVar('THISDIR'), '..', '..', '..', '..', '..'))}"

EXTRA_OECMAKE = "\
    -DCMAKE_SKIP_RPATH=ON \
    -DTREESCOPE_GATEWAY=ON \
    -DTREESCOPE_PYTHON_DIR=${PYTHON_SITEPACKAGES_DIR} \
    -DTREESCOPE_PYTHON_LIBRARY=libtreescope.so.0 \
    -DTREESCOPE_SYSTEMD_UNIT_DIR=${systemd_system_unitdir} \
"

PACKAGES =+ "modelsrvd modelgate libkrvkstd libkrvsyssrv libtreescope python3-treescope"

FILES:modelsrvd = "${bindir}/modelsrvd ${systemd_system_unitdir}/modelsrvd.service"
FILES:modelgate = "${bindir}/modelgate ${bindir}/modelgate-certificates ${datadir}/modelgate \
    ${systemd_system_unitdir}/modelgate-export.service ${systemd_system_unitdir}/modelgate-view.service"
FILES:libkrvkstd = "${libdir}/libkrvkstd.so.*"
FILES:libkrvsyssrv = "${libdir}/libkrvsyssrv.so.*"
FILES:libtreescope = "${libdir}/libtreescope.so.*"
FILES:python3-treescope = "${PYTHON_SITEPACKAGES_DIR}/treescope"
FILES:${PN} += "${datadir}/bash-completion ${datadir}/zsh ${datadir}/fish"

RDEPENDS:python3-treescope = "libtreescope python3-asyncio python3-core python3-ctypes"
RRECOMMENDS:${PN} = "modelsrvd"

SYSTEMD_PACKAGES = "modelsrvd modelgate"
SYSTEMD_SERVICE:modelsrvd = "modelsrvd.service"
# Neither starts without its configuration.
SYSTEMD_SERVICE:modelgate = "modelgate-export.service modelgate-view.service"

# The group of modelsrvd: its members may connect.
USERADD_PACKAGES = "modelsrvd modelgate"
USERADD_PARAM:modelsrvd = "--system --user-group --no-create-home --home-dir /nonexistent \
    --shell /sbin/nologin modelsrvd"
USERADD_PARAM:modelgate = "--system --user-group --no-create-home --home-dir /nonexistent \
    --shell /sbin/nologin modelgate"
