# Sourced: refuses to go on (exit 1) unless this process is inside a private
# network and mount namespace, so that nothing that follows reaches the host.
# Compared with init's namespaces or, where a container hides those, with the
# parent's (the caller that exec'd the chain from outside). $1: who refuses.
for fhrp_ns in net mnt; do
  fhrp_self="$(readlink "/proc/self/ns/$fhrp_ns")" || fhrp_self=""
  fhrp_ref="$(readlink "/proc/1/ns/$fhrp_ns" 2>/dev/null || readlink "/proc/$PPID/ns/$fhrp_ns")" ||
    fhrp_ref=""
  if [ -z "$fhrp_self" ] || [ -z "$fhrp_ref" ] || [ "$fhrp_self" = "$fhrp_ref" ]; then
    echo "$1: not inside a private $fhrp_ns namespace; refusing to go on" >&2
    exit 1
  fi
done
unset fhrp_ns fhrp_self fhrp_ref
