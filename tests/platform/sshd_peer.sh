#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
#
# sshd_peer.sh FOLDER PEERS PORT SERVER [KEY_TYPE] [OPTION...]: OpenSSH's own server (sshd) or dropbear
# on 127.0.0.1 with SFTP, for the user admin with the password secret, who is root under another
# name. OPTIONs are lines of sshd's configuration. Run it as root in a mount namespace of its own
# (unshare --mount): it has account files of its own there. FOLDER takes its files.
set -eu

folder=$1 peers=$2 port=$3 server=${4-sshd} key_type=${5-ed25519}
if [ $# -lt 5 ]; then shift $#; else shift 5; fi

{
    echo 'root:x:0:0:root:/root:/bin/sh'
    echo 'sshd:x:101:65534::/run/sshd:/usr/sbin/nologin'
    echo 'admin:x:0:0::/:/bin/sh'
} >"$folder/passwd"
{
    echo 'root:*:19000:0:99999:7:::'
    echo "admin:$(openssl passwd -6 secret):19000:0:99999:7:::"
} >"$folder/shadow"
mount --bind "$folder/passwd" /etc/passwd
mount --bind "$folder/shadow" /etc/shadow
mount -t tmpfs none /run
mkdir -m 755 /run/sshd

LD_LIBRARY_PATH=$peers/usr/lib/$(uname -m)-linux-gnu
export LD_LIBRARY_PATH
if [ "$server" = dropbear ]; then
    # It looks for the SFTP server in a folder of this machine, where no test has any business: its
    # copy looks in one that is of this namespace.
    mkdir /run/lib
    cp "$peers/usr/lib/openssh/sftp-server" /run/lib/sftp-server
    sed 's,/usr/lib/sftp-server,/run/lib/sftp-server,' "$peers/usr/sbin/dropbear" >/run/dropbear
    chmod 755 /run/dropbear
    "$peers/usr/bin/dropbearkey" -t "$key_type" -f "$folder/key" >/dev/null 2>&1
    exec /run/dropbear -F -E -p "127.0.0.1:$port" -P "$folder/pid" -r "$folder/key" \
        2>"$folder/log"
fi

# An account file is not enough where the server may only ask questions.
mount -t tmpfs none /etc/pam.d
printf 'auth required pam_unix.so\naccount required pam_permit.so\nsession required pam_permit.so\n' >/etc/pam.d/sshd

ssh-keygen -q -t "$key_type" -N '' -f "$folder/key"
for option in "$@"; do
    echo "$option"
done >"$folder/options"
cat "$folder/options" - >"$folder/config" <<END
Port $port
ListenAddress 127.0.0.1
HostKey $folder/key
PidFile none
UsePAM no
StrictModes no
PermitRootLogin yes
PasswordAuthentication yes
Subsystem sftp internal-sftp
ForceCommand internal-sftp
END
exec "$peers/usr/sbin/sshd" -D -e -f "$folder/config" 2>"$folder/log"
