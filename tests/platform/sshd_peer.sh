#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
#
# sshd_peer.sh FOLDER PEERS PORT: OpenSSH's own server on 127.0.0.1, SFTP alone, for the user admin
# with the password secret, who is root under another name. Run it as root in a mount namespace of
# its own (unshare --mount): it has account files of its own there. FOLDER takes its files.
set -eu

folder=$1 peers=$2 port=$3

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

ssh-keygen -q -t ed25519 -N '' -f "$folder/key"
cat >"$folder/config" <<END
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
LD_LIBRARY_PATH=$peers/usr/lib/$(uname -m)-linux-gnu
export LD_LIBRARY_PATH
exec "$peers/usr/sbin/sshd" -D -e -f "$folder/config" 2>"$folder/log"
