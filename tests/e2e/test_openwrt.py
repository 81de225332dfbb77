"""The feed for OpenWrt: its scripts under busybox's shell, against stand-ins for OpenWrt's libraries."""

import re
import shutil
import subprocess
import tomllib
from pathlib import Path

import pytest

from tests.e2e.test_install import install

REPOSITORY = Path(__file__).parents[2]
FEED = REPOSITORY / "packaging/openwrt/client-mgr"
FILES = FEED / "files"
SCRIPTS = ("ap-toml.sh", "client_mgr.init", "wireless-settings")

# What the scripts use of /lib/functions.sh: sections and options come as callbacks, then one section without a name.
FUNCTIONS = r"""
reset_cb() {
    config_cb() { return 0; }
    option_cb() { return 0; }
    list_cb() { return 0; }
}
reset_cb
config() {
    count=$((${count:-0} + 1))
    section=${2:-cfg$count}
    sections="$sections $section"
    eval "type_$section=\$1"
    config_cb "$1" "$section"
}
option() {
    eval "value_${section}_$1=\$2"
    option_cb "$1" "$2"
}
list() { list_cb "$1" "$2"; }
config_load() {
    sections=''
    . "$UCI/$1"
    config_cb
}
config_get() { eval "$1=\${value_${2}_$3:-\$4}"; }
config_get_bool() { config_get "$@"; }
config_foreach() {
    for each in $sections; do
        eval "[ \$type_$each = $2 ]" && "$1" "$each"
    done
}
"""

needs_busybox = pytest.mark.skipif(not shutil.which("busybox"), reason="busybox is not here")


@pytest.fixture
def uci(tmp_path):
    """A directory of UCI's configurations, and /lib/functions.sh."""
    (tmp_path / "functions.sh").write_text(FUNCTIONS)
    (tmp_path / "config").mkdir()
    return tmp_path


def ash(uci, script, *words):
    return subprocess.run(["busybox", "ash", "-c", script, "ash", *words], capture_output=True, text=True, timeout=20,
                          check=False, env={"UCI": str(uci / "config"), "PATH": "/usr/sbin:/usr/bin:/sbin:/bin",
                                            "LIB_FUNCTIONS": str(uci / "functions.sh")})


def convert(uci, text):
    """Returns the command's result and ap.toml, or None."""
    (uci / "config/client_mgr").write_text(text)
    file = uci / "ap.toml"
    done = ash(uci, f'. {uci}/functions.sh && . {FILES}/ap-toml.sh && write_ap_toml "$1"', str(file))
    assert not (uci / "ap.toml.new").exists()
    return done, tomllib.loads(file.read_text()) if file.exists() else None


@pytest.mark.skipif(not shutil.which("shellcheck"), reason="shellcheck is not here")
def test_scripts_pass_shellcheck():
    for script in SCRIPTS:
        subprocess.run(["shellcheck", "--shell=dash", "--exclude=SC1091", FILES / script], check=True)


@needs_busybox
def test_sample_becomes_ap_toml(uci):
    done, made = convert(uci, (FILES / "client_mgr.config").read_text())
    assert (done.returncode, done.stderr) == (0, "")
    assert made == {
        "ap": {"mac": "02:00:00:00:10:00"},
        "controller": {"address": "192.0.2.1", "port": 7443, "ca": "ca.pem", "certificate": "ap.pem", "key": "ap.key"},
        "radio": {"hostapd_directory": "/var/run/hostapd", "radius_secret_file": "hostapd.secret",
                  "radius_server": [{"address": "192.0.2.2", "port": 1812, "secret_file": "server.secret"}]},
        "vap": [{"ifname": "phy0-ap0", "ssid": "office", "vlan": 10, "mac_acl_index": 1}],
    }


@needs_busybox
@pytest.mark.parametrize("uci_value, wanted", [
    ("'a \"quoted\" name'", 'a "quoted" name'), (r"'back\slash'", r"back\slash"), ("'$(reboot)`reboot`;'", "$(reboot)`reboot`;"),
    ("'Café'", "Café"), ("'a\tb'", "a\tb"), ("''", "")])
def test_texts_are_quoted(uci, uci_value, wanted):
    done, made = convert(uci, f"config vap\n\toption ssid {uci_value}\n")
    assert (done.stderr, made["vap"]) == ("", [{"ssid": wanted}])


@needs_busybox
def test_numbers_and_switches(uci):
    _, made = convert(uci, "config vap\n\toption vlan '010'\n\toption guest '1'\n\toption fetch_pmk 'off'\n"
                           "config vap\n\toption vlan '0'\n\toption enabled 'yes'\n")
    assert made["vap"] == [{"vlan": 10, "guest": True, "fetch_pmk": False}, {"vlan": 0, "enabled": True}]


@needs_busybox
@pytest.mark.parametrize("text, error", [
    ("config vap 'v'\n\toption vlan 'ten'\n", "section v: vlan: expected a number, not 'ten'"),
    ("config vap 'v'\n\toption vlan '10000000000'\n", "section v: vlan: expected a number, not '10000000000'"),
    ("config vap 'v'\n\toption guest 'maybe'\n", "section v: guest: expected 0 or 1, not 'maybe'"),
    ("config vap 'v'\n\toption ssid 'two\nlines'\n", "section v: ssid: a line end is not allowed"),
    ("config vap 'v'\n\tlist ssid 'a'\n", "section v: ssid: a list is not allowed"),
    ("config ap 'a'\nconfig ap 'b'\n", "section b: a second section of the type ap"),
    ("config wap 'v'\n", "section v: unknown type 'wap'")])
def test_wrong_sections_leave_ap_toml_as_it_was(uci, text, error):
    (uci / "ap.toml").write_text("[ap]\n")
    done, made = convert(uci, text)
    assert (done.returncode, done.stderr) == (1, f"client_mgr: {error}\n")
    assert made == {"ap": {}}


PROCD = r"""
procd_open_instance() { echo "open $1"; }
procd_set_param() { echo "$@"; }
procd_add_jail() { echo "jail $1"; }
procd_close_instance() { echo close; }
procd_add_reload_trigger() { echo "trigger $1"; }
"""


def start_service(uci, enabled):
    """Runs start_service of the init script with its paths below `uci`. Returns what it set for procd."""
    sample = (FILES / "client_mgr.config").read_text()
    (uci / "config/client_mgr").write_text(sample.replace("option enabled '0'", f"option enabled '{enabled}'"))
    script = (FILES / "client_mgr.init").read_text()
    for path, here in (("/usr/share/client_mgr/ap-toml.sh", FILES / "ap-toml.sh"), ("/var/run/kx", uci / "kx"),
                       ("/etc/kx", uci / "etc"), ("/sbin/ujail", uci / "ujail")):
        assert path in script
        script = script.replace(path, str(here))
    (uci / "init").write_text(script)
    done = ash(uci, f". {uci}/functions.sh && {PROCD} . {uci}/init && start_service && service_triggers")
    assert (done.returncode, done.stderr) == (0, "")
    return done.stdout.splitlines()


@needs_busybox
def test_service_starts_radiod_first(uci):
    calls = start_service(uci, 1)
    assert [line for line in calls if line.startswith(("open", "command"))] == [
        "open radiod", "command /usr/sbin/radiod", "open client_mgr", "command /usr/sbin/client_mgr",
        "open apd", "command /usr/sbin/apd"]
    assert calls.count("limits core=0") == 3
    assert not [line for line in calls if line.startswith("user")], "without a jail nobody gives them capabilities"
    assert [oct((uci / "kx" / name).stat().st_mode & 0o7777) for name in ("", "kx", "kx/ipc", "kx/driver", "kx/radio")] == [
        "0o710", "0o710", "0o2710", "0o2710", "0o2710"]
    assert tomllib.loads((uci / "etc/ap.toml").read_text())["ap"]


@needs_busybox
def test_disabled_service_starts_nothing(uci):
    assert start_service(uci, 0) == ["trigger client_mgr"]


@needs_busybox
def test_wireless_settings_concern_only_chosen_interfaces(uci):
    (uci / "config/wireless").write_text("""\
config wifi-iface 'office'
\toption client_mgr '1'
\toption encryption 'wpa2'
config wifi-iface 'guest'
\toption client_mgr '1'
\toption encryption 'psk2'
config wifi-iface 'home'
\toption encryption 'psk2'
""")
    secret = uci / "secret"
    secret.write_text("0123abcd\n")
    done = subprocess.run(["busybox", "ash", FILES / "wireless-settings", secret], capture_output=True, text=True,
                          timeout=20, check=False,
                          env={"UCI": str(uci / "config"), "LIB_FUNCTIONS": str(uci / "functions.sh"), "PATH": "/bin"})
    assert (done.returncode, done.stderr) == (0, "")
    added = [line for line in done.stdout.splitlines() if not line.startswith("del_list")]
    options = ["notify_mgmt_frames=1", "own_ip_addr=127.0.0.1", "macaddr_acl=2"]
    assert added == [
        "set wireless.office.auth_server='127.0.0.1'", "set wireless.office.auth_port='1812'",
        "set wireless.office.auth_secret='0123abcd'",
        *(f"add_list wireless.office.hostapd_bss_options='{each}'" for each in options),
        *(f"add_list wireless.guest.hostapd_bss_options='{each}'" for each in
          ("auth_server_addr=127.0.0.1", "auth_server_port=1812", "auth_server_shared_secret=0123abcd", *options))]


@needs_busybox
def test_secret_that_uci_would_change_is_refused(uci):
    (uci / "secret").write_text("it's\n")
    done = ash(uci, f"set -- {uci}/secret; . {FILES}/wireless-settings")
    assert done.returncode == 1
    assert "only letters, digits" in done.stderr


def test_makefile_packages_what_cmake_installs(programs, tmp_path):
    makefile = (FEED / "Makefile").read_text()
    machine = install(programs, tmp_path, "/usr")
    installed = {each.relative_to(machine).as_posix() for folder in ("usr/bin", "usr/sbin")
                 for each in (machine / folder).iterdir()}
    packaged = set(re.findall(r"\$\(PKG_INSTALL_DIR\)/(\S+)", makefile))
    assert packaged == installed - {"usr/bin/site_controller", "usr/bin/sitectl"}
    files = set(re.findall(r"\./files/(\S+)", makefile))
    assert files == {each.name for each in FILES.iterdir()}


def test_feed_has_the_projects_version():
    version = re.search(r"^project\(.* VERSION (\S+)", (REPOSITORY / "CMakeLists.txt").read_text(), re.M)[1]
    assert f"PKG_VERSION:={version}\n" in (FEED / "Makefile").read_text()
