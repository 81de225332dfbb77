# Writes ap.toml from the UCI configuration `client_mgr`, for the init script. Needs /lib/functions.sh.
# shellcheck shell=dash
#
# Each section becomes a table and each option a key of the same name: see ap.toml(5). `enabled` of the section `service`
# is the init script's.

ap_toml_error=''

ap_toml_fail() {
    [ -n "$ap_toml_error" ] || ap_toml_error="client_mgr: section ${ap_toml_section:-?}: $1"
}

# A basic string of TOML.
ap_toml_quote() {
    printf '"%s"' "$(printf %s "$1" | sed -e 's/\\/\\\\/g' -e 's/"/\\"/g' -e 's/\t/\\t/g')"
}

ap_toml_value() {
    case "$1" in
    port | radius_port | hold_ms | vlan | mac_acl_index | radius_index | radius_acl_type)
        case "$2" in
        '' | *[!0-9]* | ??????????*) ap_toml_fail "$1: expected a number, not '$2'" ;;
        0) printf 0 ;;
        *) printf %s "$2" | sed 's/^0*\(.\)/\1/' ;;
        esac
        ;;
    enabled | guest | fetch_pmk)
        case "$2" in
        1 | on | true | yes | enabled) printf true ;;
        0 | off | false | no | disabled) printf false ;;
        *) ap_toml_fail "$1: expected 0 or 1, not '$2'" ;;
        esac
        ;;
    *) ap_toml_quote "$2" ;;
    esac
}

# Called by config_load for each section, and once more at the end.
config_cb() {
    ap_toml_section=$2 ap_toml_skipped=0
    case "$1" in
    ap | controller | radio | tunnel)
        case " $ap_toml_seen " in
        *" $1 "*) ap_toml_fail "a second section of the type $1" ;;
        esac
        ap_toml_seen="$ap_toml_seen $1"
        printf '\n[%s]\n' "$1"
        ;;
    radius_server) printf '\n[[radio.radius_server]]\n' ;;
    vap) printf '\n[[vap]]\n' ;;
    service | '') ap_toml_skipped=1 ;;
    *) ap_toml_fail "unknown type '$1'" ;;
    esac
}

# Called for each option.
option_cb() {
    [ "$ap_toml_skipped" = 0 ] || return 0
    case "$2" in
    *'
'*) ap_toml_fail "$1: a line end is not allowed" ;;
    *) printf '%s = ' "$1" && ap_toml_value "$1" "$2" && printf '\n' ;;
    esac
}

list_cb() {
    [ "$ap_toml_skipped" = 0 ] || return 0
    ap_toml_fail "$1: a list is not allowed"
}

# write_ap_toml FILE: replaces FILE, or leaves it as it is, prints what is wrong and returns 1.
write_ap_toml() {
    ap_toml_error='' ap_toml_seen=''
    (umask 022 && : >"$1.new") || return 1
    # Not in a subshell: the callbacks leave the error in a variable.
    { echo '# Made from /etc/config/client_mgr.' && config_load client_mgr; } >"$1.new"
    reset_cb
    if [ -n "$ap_toml_error" ]; then
        rm -f "$1.new"
        echo "$ap_toml_error" >&2
        return 1
    fi
    mv "$1.new" "$1"
}
