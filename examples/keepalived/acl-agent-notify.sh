#!/bin/sh
# keepalived's notify hook: called as  acl-agent-notify.sh INSTANCE NAME STATE PRIORITY.
# On MASTER it writes the instance's rows into the state database that
# acl-agent follows; on BACKUP, FAULT and STOP it deletes them. Rows are
# written, never popped: the agent reads them level-triggered.
#
# The rows of each instance: "VRF ADDRESS INTERFACE_ID", one per line. IPv4
# takes /32 here: keepalived answers ARP for the virtual IP with the router's
# own MAC, so no virtual-router subnet rule (and no virtual-router MAC) is
# wanted; IPv6 addresses go without a length.
rows_of() {
  case "$1" in
    VI_10) echo "default 10.0.10.1/32 Vlan10" ;;
  esac
}
# The state database: redis-cli's options (socket, database 6).
REDIS_CLI="redis-cli -s /run/redis/redis-server.sock -n 6"

[ "$1" = INSTANCE ] || exit 0
rows_of "$2" | while read -r vrf address intf; do
  case "$address" in
    *:*) key="VIRTUAL_IP6|$vrf|$address|$intf" ;;
    *) key="VIRTUAL_IP|$vrf|$address|$intf" ;;
  esac
  case "$3" in
    MASTER) $REDIS_CLI HSET "$key" NULL NULL ;;
    BACKUP | FAULT | STOP) $REDIS_CLI DEL "$key" ;;
  esac >/dev/null || logger -t acl-agent-notify "cannot write $key for $2 $3"
done
