"""The kinds of networks: what hostapd and what wpa_supplicant have to be configured with."""

from dataclasses import dataclass

PASSWORD = "correct horse"

@dataclass(frozen=True)
class NetworkKind:
    """Lines of hostapd.conf and of a network block of wpa_supplicant.conf."""

    name: str
    access_point: tuple[str, ...]
    station: tuple[str, ...]
    has_8021x: bool = False
    has_fast_transition: bool = False
    has_protected_frames: bool = False

    def __str__(self) -> str:
        return self.name


def rsn(suite: str, *more: str) -> tuple[str, ...]:
    return ("wpa=2", f"wpa_key_mgmt={suite}", "rsn_pairwise=CCMP", *more)


PEAP = ("eap=PEAP", 'identity="bob"', f'password="{PASSWORD}"', 'phase2="auth=MSCHAPV2"')
PROTECTED = ("ieee80211w=2",)
# The access points fetch keys from each other over the wire, all with one key.
FAST_TRANSITION = ("mobility_domain=a1b2", "ft_over_ds=0", f"r0kh=ff:ff:ff:ff:ff:ff * {64 * '5'}",
                   f"r1kh=00:00:00:00:00:00 00:00:00:00:00:00 {64 * '5'}")

OPEN = NetworkKind("open", (), ("key_mgmt=NONE",))
OWE = NetworkKind("owe", rsn("OWE", *PROTECTED), ("key_mgmt=OWE", *PROTECTED), has_protected_frames=True)
PSK = NetworkKind("psk", rsn("WPA-PSK", f"wpa_passphrase={PASSWORD}"), ("key_mgmt=WPA-PSK", f'psk="{PASSWORD}"'))
SAE = NetworkKind("sae", rsn("SAE", f"sae_password={PASSWORD}", *PROTECTED),
                  ("key_mgmt=SAE", f'sae_password="{PASSWORD}"', *PROTECTED), has_protected_frames=True)
EAP = NetworkKind("eap", rsn("WPA-EAP", "ieee8021x=1"), ("key_mgmt=WPA-EAP", *PEAP), has_8021x=True)
EAP_SHA256 = NetworkKind("eap-sha256", rsn("WPA-EAP-SHA256", "ieee8021x=1", *PROTECTED),
                         ("key_mgmt=WPA-EAP-SHA256", *PEAP, *PROTECTED), has_8021x=True, has_protected_frames=True)
FT_PSK = NetworkKind("ft-psk", rsn("FT-PSK", f"wpa_passphrase={PASSWORD}", "ft_psk_generate_local=1",
                                 *FAST_TRANSITION),
                     ("key_mgmt=FT-PSK", f'psk="{PASSWORD}"'), has_fast_transition=True)
FT_EAP = NetworkKind("ft-eap", rsn("FT-EAP", "ieee8021x=1", *FAST_TRANSITION),
                     ("key_mgmt=FT-EAP", *PEAP), has_8021x=True,
                     has_fast_transition=True)

ALL = (OPEN, OWE, PSK, SAE, EAP, EAP_SHA256, FT_PSK, FT_EAP)
