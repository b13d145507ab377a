#!/bin/bash
# A private collector for the forwarding tests, never the machine's own:
#   collector.sh start DIR PORT KIND [cert=NAME] [max=SIZE]
#                                       starts it in the foreground mode in the
#                                       background, listening on 127.0.0.1:PORT,
#                                       writing every message into DIR/messages.log,
#                                       one a line. KIND: tcp, tls, udp (rsyslog,
#                                       each message as received, line feeds as
#                                       #012; max: its message size limit, 64k),
#                                       ng-lf (syslog-ng network() over TCP, a
#                                       message a line), ng-octet (syslog-ng
#                                       syslog() over TCP, octet counting); syslog-ng
#                                       writes the fields it parsed in RFC 5424 order
#                                       and joins a message's lines with blanks
#   collector.sh stop DIR               stops it and waits until it has gone
# For tls the certificates are made in DIR once (DIR/ca.pem is the site CA);
# cert names the one the collector presents (good). When done it writes its exit
# code into DIR/<command>.done, for callers that cannot wait on it (a test
# under Wine starts it as a Unix process).
cmd=$1 dir=$2
rm -f "$dir/$cmd.done"
trap 'echo $? >"$dir/$cmd.done"' EXIT
set -e
case "$cmd" in
start)
  port=$3 mode=$4
  mkdir -p "$dir/work"
  driver=""
  cert=good max=64k
  for a in "${@:5}"; do case $a in cert=*) cert=${a#cert=} ;; max=*) max=${a#max=} ;; esac; done
  if [ "$mode" = tls ] && [ ! -f "$dir/ca.pem" ]; then
    # The site CA and what the collector may present (DIR/<name>.pem, with the
    # intermediates it sends): good (through an intermediate CA), nonca (signed
    # by an ordinary certificate the CA issued), self (self-signed), wronghost,
    # expired and oldsigner (an intermediate that expired).
    cd "$dir"
    key() { openssl req -newkey rsa:2048 -nodes -subj "/CN=$2" -keyout "$1.key" -out "$1.csr" 2>/dev/null; }
    sign() { openssl x509 -req -in "$1.csr" -CA "$2.pem" -CAkey "$2.key" -CAcreateserial -days 2 -extfile "$3" -out "$1.pem" 2>/dev/null; }
    printf 'basicConstraints=critical,CA:TRUE\nkeyUsage=critical,keyCertSign\n' >ca.ext
    printf 'basicConstraints=CA:FALSE\nsubjectAltName=IP:127.0.0.1,DNS:localhost\n' >leaf.ext
    sed 's/IP:127.0.0.1,DNS:localhost/DNS:wrong.example/' leaf.ext >wrong.ext
    printf '[ca]\ndefault_ca=c\n[c]\ndatabase=index.txt\nnew_certs_dir=.\nserial=ca.srl\ndefault_md=sha256\npolicy=p\n[p]\ncommonName=supplied\n' >old.cnf
    old() { openssl ca -batch -config old.cnf -cert "$2.pem" -keyfile "$2.key" -in "$1.csr" -out "$1.pem" -notext -startdate 20200101000000Z -enddate 20200102000000Z -extfile "$3" 2>/dev/null; }
    : >index.txt
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "/CN=kvtest collector CA" -keyout ca.key -out ca.pem 2>/dev/null
    for n in inter other old; do key $n "kvtest $n"; done
    sign inter ca ca.ext && sign other ca leaf.ext && old old ca ca.ext
    for n in good nonca expired oldsigner; do key $n 127.0.0.1; done
    key wronghost wrong.example
    sign good inter leaf.ext && sign nonca other leaf.ext && sign wronghost inter wrong.ext
    old expired inter leaf.ext && sign oldsigner old leaf.ext
    cat inter.pem >>good.pem; cat other.pem >>nonca.pem; cat inter.pem >>wronghost.pem
    cat inter.pem >>expired.pem; cat old.pem >>oldsigner.pem
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "/CN=127.0.0.1" -addext "subjectAltName=IP:127.0.0.1" \
      -keyout self.key -out self.pem 2>/dev/null
    cd - >/dev/null
  fi
  if [ "$mode" = tls ]; then
    driver=" StreamDriver.Name=\"gtls\" StreamDriver.Mode=\"1\" StreamDriver.AuthMode=\"anon\""
    tlsfiles=" DefaultNetstreamDriverCAFile=\"$dir/ca.pem\" DefaultNetstreamDriverCertFile=\"$dir/$cert.pem\" DefaultNetstreamDriverKeyFile=\"$dir/$cert.key\""
  fi
  if [ "$mode" = udp ]; then
    input="module(load=\"imudp\")
input(type=\"imudp\" address=\"127.0.0.1\" port=\"$port\")"
  else
    input="module(load=\"imtcp\"$driver)
input(type=\"imtcp\" address=\"127.0.0.1\" port=\"$port\")"
  fi
  case "$mode" in ng-*)
    ng=${KV_SYSLOG_NG:-/opt/kvtest/syslog-ng}
    if [ "$mode" = ng-lf ]; then
      source="network(ip(\"127.0.0.1\") port($port) transport(\"tcp\") flags(syslog-protocol, no-multi-line) log-msg-size(65536))"
    else
      source="syslog(ip(\"127.0.0.1\") port($port) transport(\"tcp\") flags(no-multi-line) log-msg-size(65536))"
    fi
    cat >"$dir/syslog-ng.conf" <<CONF
@version: 3.38
options { keep-hostname(yes); frac-digits(3); };
source s_in { $source; };
destination d_file { file("$dir/messages.log" template("<\${PRI}>1 \${ISODATE} \${HOST} \${PROGRAM} \$(if (\"\${PID}\" ne \"\") \"\${PID}\" \"-\") \$(if (\"\${MSGID}\" ne \"\") \"\${MSGID}\" \"-\") \$(if (\"\${SDATA}\" ne \"\") \"\${SDATA}\" \"-\") \${MSG}\n") template-escape(no)); };
log { source(s_in); destination(d_file); };
CONF
    LD_LIBRARY_PATH="$ng/usr/lib/syslog-ng" "$ng/usr/sbin/syslog-ng" -F --no-caps -f "$dir/syslog-ng.conf" \
      --module-path="$ng/usr/lib/syslog-ng/3.38" -R "$dir/work/persist" -c "$dir/work/ctl" \
      -p "$dir/rsyslogd.pid" >"$dir/rsyslogd.out" 2>&1 &
    ;;
  *)
  cat >"$dir/rsyslog.conf" <<CONF
global(workDirectory="$dir/work" maxMessageSize="$max"${tlsfiles:-})
$input
template(name="raw" type="string" string="%rawmsg%\n")
action(type="omfile" file="$dir/messages.log" template="raw")
CONF
  rsyslogd -n -f "$dir/rsyslog.conf" -i "$dir/rsyslogd.pid" >"$dir/rsyslogd.out" 2>&1 &
  ;;
  esac
  # Ready once it accepts connections (UDP: once the port is bound).
  ready() {
    if [ "$mode" = udp ]; then grep -qi "^ *[0-9]*: 0100007F:$(printf %04X "$port") " /proc/net/udp
    else (exec 3<>/dev/tcp/127.0.0.1/$port) 2>/dev/null; fi
  }
  i=0
  until ready; do
    i=$((i + 1))
    [ $i -lt 200 ] || { echo "collector did not start:"; cat "$dir/rsyslogd.out"; exit 1; }
    sleep 0.1
  done
  ;;
stop)
  [ -f "$dir/rsyslogd.pid" ] || exit 0
  pid=$(cat "$dir/rsyslogd.pid")
  kill "$pid" 2>/dev/null || true
  i=0
  while kill -0 "$pid" 2>/dev/null && [ $i -lt 300 ]; do i=$((i + 1)); sleep 0.1; done
  rm -f "$dir/rsyslogd.pid"
  ;;
*)
  echo "usage: collector.sh start DIR PORT tcp|tls|udp|ng-lf|ng-octet | stop DIR" >&2
  exit 2
  ;;
esac
