"""RADIUS servers on the wire that authenticate the user "bob" by 802.1X.

hostapd's own starts faster, and is enough where a case is about what follows an Access-Accept. FreeRADIUS is the
independent peer where it is about what radiod reads and writes in RADIUS packets: keys, authenticators, limits.
"""

from pathlib import Path

from nodes.network_kinds import PASSWORD

from lab.site.authority import Authority
from lab.site.processes import Process, Processes

SECRET = "shared secret"
PORT = 1812


def start_hostapd_server(processes: Processes, directory: Path, authority: Authority) -> Process:
    """hostapd as a RADIUS server."""
    identity = authority.issue("radius")
    users, clients, configuration = (directory / name for name in ("eap_users", "radius_clients", "radius.conf"))
    users.write_text(f'* PEAP\n"bob" MSCHAPV2 "{PASSWORD}" [2]\n')
    clients.write_text(f"10.0.0.0/24 {SECRET}\n")
    configuration.write_text(f"""\
interface=lo
driver=none
radius_server_clients={clients}
radius_server_auth_port={PORT}
eap_server=1
eap_user_file={users}
ca_cert={authority.certificate}
server_cert={identity.certificate}
private_key={identity.key}
logger_stdout=-1
logger_stdout_level=0
""")
    return processes.start("/usr/sbin/hostapd", ["-t", configuration], directory)


def start_freeradius(processes: Processes, directory: Path, authority: Authority,
                     session_seconds: int | None = None) -> Process:
    """FreeRADIUS with Debian's modules and no other configuration of Debian's. `session_seconds`: its Session-Timeout."""
    limit = f"Session-Timeout := {session_seconds}" if session_seconds else ""
    identity = authority.issue("freeradius")
    (directory / "dictionary").write_text("$INCLUDE /usr/share/freeradius/dictionary\n")
    (directory / "radiusd.conf").write_text(f"""\
libdir = /usr/lib/freeradius
raddbdir = {directory}
logdir = {directory}
run_dir = {directory}
log {{
    destination = stdout
    auth = yes
}}
client access_points {{
    ipaddr = 10.0.0.0/24
    secret = "{SECRET}"
    require_message_authenticator = yes
}}
modules {{
    mschap {{ }}
    eap {{
        default_eap_type = peap
        tls-config tls {{
            certificate_file = {identity.certificate}
            private_key_file = {identity.key}
            ca_file = {authority.certificate}
        }}
        peap {{
            tls = tls
            default_eap_type = mschapv2
            virtual_server = default
        }}
        mschapv2 {{ }}
    }}
}}
server default {{
    listen {{
        type = auth
        ipaddr = *
        port = {PORT}
    }}
    authorize {{
        if (&User-Name == "bob") {{
            update control {{
                Cleartext-Password := "{PASSWORD}"
            }}
        }}
        mschap
        eap
    }}
    authenticate {{
        mschap
        eap
    }}
    post-auth {{
        update reply {{
            Message-Authenticator := 0x00
            {limit}
        }}
    }}
}}
""")
    return processes.start("/usr/sbin/freeradius", ["-f", "-l", "stdout", "-x", "-d", directory, "-D", directory],
                           directory)
