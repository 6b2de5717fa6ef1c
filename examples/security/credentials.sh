#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Makes what a program needs on a secured domain, with openssl: in <folder>, the first time, an authority and the rules of the domain that it signs;
# each time a certificate, a key and signed permissions of <name>, to be a requester or a replier of <service> and nothing else.
# For trials: the authority's own key lies in the same folder without a password, and all ends after 30 days.
#
# usage: examples/security/credentials.sh <folder> <name> requester|replier <service>
set -eu

folder="${1-}" name="${2-}" role="${3-}" service="${4-}"
case "$role" in
    requester) publishes="Request" subscribes="Reply" ;;
    replier) publishes="Reply" subscribes="Request" ;;
    *) service="" ;;
esac
if [ -z "$service" ]; then
    sed -n 's/^# \(usage: .*\)/\1/p' "$0" >&2
    exit 2
fi

umask 077
mkdir -p "$folder"
cd "$folder"
output="$(mktemp)"
trap 'rm -f "$output"' EXIT

# Silent, unless it fails.
quietly() {
    "$@" >"$output" 2>&1 || { cat "$output" >&2 && exit 1; }
}

# sign <document> <signed>
sign() {
    quietly openssl smime -sign -text -in "$1" -out "$2" -signer authority.pem -inkey authority.key
}

if [ ! -e governance.p7s ]; then
    quietly openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 30 -subj "/CN=authority" \
        -keyout authority.key -out authority.pem
    # Nobody without a certificate; what is on the wire, discovery included, is encrypted; permissions are asked for every topic.
    cat >governance.xml <<'RULES'
<?xml version="1.0" encoding="UTF-8"?>
<dds>
  <domain_access_rules>
    <domain_rule>
      <domains><id_range><min>0</min><max>232</max></id_range></domains>
      <allow_unauthenticated_participants>false</allow_unauthenticated_participants>
      <enable_join_access_control>true</enable_join_access_control>
      <discovery_protection_kind>ENCRYPT</discovery_protection_kind>
      <liveliness_protection_kind>ENCRYPT</liveliness_protection_kind>
      <rtps_protection_kind>NONE</rtps_protection_kind>
      <topic_access_rules>
        <topic_rule>
          <topic_expression>*</topic_expression>
          <enable_discovery_protection>true</enable_discovery_protection>
          <enable_liveliness_protection>true</enable_liveliness_protection>
          <enable_read_access_control>true</enable_read_access_control>
          <enable_write_access_control>true</enable_write_access_control>
          <metadata_protection_kind>ENCRYPT</metadata_protection_kind>
          <data_protection_kind>ENCRYPT</data_protection_kind>
        </topic_rule>
      </topic_access_rules>
    </domain_rule>
  </domain_access_rules>
</dds>
RULES
    sign governance.xml governance.p7s
fi

quietly openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj "/CN=$name" -keyout "$name.key" -out "$name.csr"
quietly openssl x509 -req -in "$name.csr" -CA authority.pem -CAkey authority.key -set_serial "0x$(openssl rand -hex 8)" -days 30 -out "$name.pem"
# The subject as the certificate has it, written as RFC 2253 does.
subject="$(openssl x509 -in "$name.pem" -noout -subject -nameopt RFC2253)"
cat >"$name.xml" <<PERMISSIONS
<?xml version="1.0" encoding="UTF-8"?>
<dds>
  <permissions>
    <grant name="$name">
      <subject_name>${subject#subject=}</subject_name>
      <validity>
        <not_before>$(date -u -d '-1 day' +%Y-%m-%dT%H:%M:%S)</not_before>
        <not_after>$(date -u -d '+30 days' +%Y-%m-%dT%H:%M:%S)</not_after>
      </validity>
      <allow_rule>
        <domains><id_range><min>0</min><max>232</max></id_range></domains>
        <publish><topics><topic>$service$publishes</topic></topics></publish>
        <subscribe><topics><topic>$service$subscribes</topic></topics></subscribe>
      </allow_rule>
      <default>DENY</default>
    </grant>
  </permissions>
</dds>
PERMISSIONS
sign "$name.xml" "$name.p7s"
rm "$name.csr"
