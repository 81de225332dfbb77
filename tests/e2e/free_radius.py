"""FreeRADIUS with a configuration of its own, as a server with EAP-PEAP and EAP-TTLS."""

import shutil
import socket
from pathlib import Path

from lab.site.authority import Authority
from lab.site.processes import Process, environment_for
from lab.site.waiting import wait_until

PASSWORD = "correct horse"
SESSION_SECONDS = 3600

CONFIGURATION = """\
name = radiusd
prefix = /usr
libdir = /usr/lib/freeradius
logdir = {place}
run_dir = {place}
security {{
  reject_delay = 0
}}
client localhost {{
  ipaddr = 127.0.0.1
  secret = "{secret}"
  require_message_authenticator = yes
}}
modules {{
  eap {{
    default_eap_type = peap
    tls-config common {{
      private_key_file = {key}
      certificate_file = {certificate}
      ca_file = {authority}
      tls_min_version = "1.2"
      tls_max_version = "1.2"
    }}
    ttls {{
      tls = common
      virtual_server = inner
    }}
    peap {{
      tls = common
      virtual_server = inner
      default_eap_type = mschapv2
    }}
    mschapv2 {{
    }}
  }}
  mschap {{
  }}
  pap {{
  }}
}}
server outer {{
  listen {{
    type = auth
    ipaddr = 127.0.0.1
    port = {port}
  }}
  authorize {{
    eap {{
      ok = return
    }}
  }}
  authenticate {{
    eap
  }}
  post-auth {{
    update reply {{
      Session-Timeout := {session}
    }}
    Post-Auth-Type REJECT {{
      eap
    }}
  }}
}}
server inner {{
  authorize {{
    update control {{
      Cleartext-Password := "{password}"
    }}
    mschap
    eap {{
      ok = return
    }}
    pap
  }}
  authenticate {{
    eap
    Auth-Type PAP {{
      pap
    }}
    Auth-Type MS-CHAP {{
      mschap
    }}
  }}
}}
"""


def find_program() -> Path | None:
    found = shutil.which("freeradius", path="/usr/sbin:/usr/bin")
    return Path(found) if found else None


def free_port() -> int:
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class FreeRadius:
    """A running server. Its files and its log are in `directory`."""

    def __init__(self, directory: Path, secret: str) -> None:
        directory.mkdir()
        self.port = free_port()
        self.secret = secret
        authority = Authority(directory)
        own = authority.issue("radius", "127.0.0.1")
        (directory / "radiusd.conf").write_text(CONFIGURATION.format(
            place=directory, secret=secret, key=own.key, certificate=own.certificate, authority=authority.certificate,
            port=self.port, session=SESSION_SECONDS, password=PASSWORD), encoding="utf-8")
        (directory / "dictionary").write_text("", encoding="utf-8")
        program = find_program()
        assert program is not None
        self.process = Process(program, ["-f", "-l", "stdout", "-d", directory, "-n", "radiusd"], directory,
                               environment_for(None))
        wait_until(lambda: "Ready to process requests" in self.log(), "FreeRADIUS is ready", log=self.process.out,
                   check=self.process.check_runs)

    def log(self) -> str:
        return self.process.out.read_text(errors="replace")
