#!/usr/bin/env bash
# command_check.sh TESSEL: what scripts rely on: exit codes, which stream, the order of bodies, file names,
# bytes that come through unchanged, and errors of one line.
set -euo pipefail
# shellcheck source=tests/command/expect.sh
. "$(dirname "$0")/expect.sh"

mkdir -p "$work/www/inbox" "$work/www/again"
chmod 777 "$work/www/inbox"
echo slow > "$work/www/slow.txt"
head -c 20000 /dev/urandom >> "$work/www/slow.txt"
echo fast > "$work/www/fast.txt"
cp "$work/www/fast.txt" "$work/www/again/fast.txt"
printf '<title>no</title><h1>Title</h1><p>a &amp; <b>b</b><pre>&uuml;\n</pre>' > "$work/www/page.html"
echo folder > "$work/www/index.html"
printf 'a\0b\r\n\xff' > "$work/body"
start_nginx "$work" 'server {
    listen 127.0.0.1:@PORT@;
    root @FOLDER@/www;
    location /slow.txt { limit_rate 20k; }
    location /inbox/ { dav_methods PUT DELETE; }
}'
site=http://127.0.0.1:$(head -1 "$work/ports")

# Bad usage: 2, nothing on standard output, one line that names the culprit.
while read -r culprit arguments; do
    # shellcheck disable=SC2086 # a list of words
    expect 2 $arguments
    err_has "$culprit"
    if [ -s "$work/out" ] || [ "$(wc -l < "$work/err")" != 1 ]; then
        complain "not one line of error: $arguments"
    fi
done << END
subcommand
URL get
--nosuch get --nosuch $site
--parallel get --parallel 0 $site
--header get --header nocolon $site
--proxy get --proxy nowhere $site
--proxy get --proxy host:70000 $site
--method request --method BREW $site
--method request $site
--attr xml --attr title $work/body
--events xml --events $work/body
KEY locale $work/body
body request --method get --data x $site
--data get --data x $site
--data-file post --data-file $work/none $site
subcommand encode
subcommand reg
HOST:PORT accounts add nowhere --user ann
HOST:PORT accounts forget [::1]:80
user accounts add host:80
URL routes
KEY reg list nowhere\\x
VALUE reg set HKCU\\tessel-check n 1x --type dword
--key encode aes --key nobody x
--nosuch text --nosuch
folder get --output $work/one $site/fast.txt $site/slow.txt
END

expect 0 url --json 'https://jürgen:x@例え.jp:8443/a b/é?q=1#f'
out_has '{"scheme":"https","scheme_number":4,"host":"例え.jp","port":8443,"user":"jürgen","password":"x",'
out_has '"path":"/a b/é","extra":"?q=1#f"}'
expect 1 url nonsense
err_has 'nonsense: 12006: '
expect 0 error 12007
out_has '12007: '
expect 1 error 4711
expect 0 timer --every 10 --count 3
out_has 'tick 3 after '

# Coders: a line for each argument; a file comes back from a pipe byte by byte.
expect 0 encode url 'a b&c' 中
out_has 'a%20b%26c'
out_has '%4E2D'
expect 0 decode base64 Zm9v 'Zg=='
printf 'foo\nf\n' | cmp - "$work/out" || complain "decode base64"
for coding in base64 'url --bytes'; do
    # shellcheck disable=SC2086 # a list of words
    "$tessel" encode $coding --file "$work/body" | "$tessel" decode $coding | cmp - "$work/body" ||
        complain "encode and decode $coding"
done
"$tessel" encode aes --key avscan 'Grüße' | "$tessel" decode aes --key avscan > "$work/out"
printf 'Grüße' | cmp - "$work/out" || complain "encode and decode aes"
expect 1 decode aes 1234
err_has 'multiple of 16'

# Text of documents from a file, a pipe and a server. A Wine without an HTML engine has none of it.
if [ -z "${ON_WINDOWS:-}" ]; then
    expect 0 text --json "$work/www/page.html"
    out_has '"text":"Title\n\na & b\n\nü\n"'
    expect 0 text "$site/page.html"
    printf 'Title\n\na & b\n\nü\n' | cmp - "$work/out" || complain "text of a URL"
    "$tessel" text < "$work/www/page.html" | cmp - "$work/out" || complain "text of a pipe"
    expect 3 text "$site/none"
    expect 1 text "$work/none"
    err_has "can't be read"
fi
echo '<book><title lang="de">&#220;ber</title><title>Zwei</title></book>' > "$work/book.xml"
expect 0 xml --text /book/title "$work/book.xml"
[ "$(cat "$work/out")" = "$(printf 'Über\nZwei')" ] || complain "not the two titles"
expect 0 xml --json --events --attr /book/title@lang "$work/book.xml"
out_has '{"event":"OnStartNodeEvent","path":"/book/title"}'
out_has '{"path":"/book/title","attribute":"lang","value":"de"}'
expect 1 xml "$work/body"
err_has 'no well-formed XML'
expect 1 xml "$work/none"
printf '[text]\nhello="[1], {user}: [0]"\n' > "$work/german.ini"
expect 0 locale --json --named '{user}=Änn' "$work/german.ini" HELLO a b
out_has '{"key":"HELLO","text":"b, Änn: a"}'
expect 1 locale "$work/german.ini" none
err_has 'no text for none'

# Keys of the registry.
key='HKCU\Software\tessel check'
expect 0 reg set "$key\sub" blob 00ff10 --type binary
expect 0 reg set "$key" 'Näme' 'a "text"'
expect 0 reg get --json "$key" 'NÄME'
out_has '"name":"NÄME","type":"REG_SZ","data":"a \"text\""}'
expect 0 reg list "$key"
printf '%s\\\n  "Näme" REG_SZ "a \\"text\\""\n  sub\\\n    "blob" REG_BINARY "00ff10"\n' "$key" |
    cmp - "$work/out" || complain "the tree of keys"
expect 0 reg list --json "$key"
out_has '\\sub","values":[{"name":"blob","type":"REG_BINARY","data":"00ff10"}]}'
expect 0 reg set "$key" n 0xFFFFFFFF --type dword
expect 0 reg get "$key" N
out_has 4294967295
expect 1 reg delete "$key"
err_has '--tree'
expect 0 reg delete "$key" n
expect 1 reg get "$key" n
err_has '"n": 2: '
expect 0 reg delete --tree "$key"
expect 1 reg list "$key"

# Accounts of proxies: a password comes from a pipe and shows only when it is asked for.
expect 0 accounts add Proxy.check.test:3128 --user Änn < <(printf 'geheim ü\nmore\n')
expect 0 accounts list
out_has 'proxy.check.test:3128  http  Änn  (password hidden)'
expect 0 accounts list --json --show-passwords
out_has '{"server":"proxy.check.test","port":3128,"type":"http","user":"Änn","password":"geheim ü"}'
expect 1 accounts add proxy.check.test:3128 --user Änn < /dev/null
expect 1 accounts forget proxy.check.test:3129

# Whose word a route is.
expect 0 routes --json "$site"
out_has '"origin":"nothing","milliseconds":'
out_has '"routes":[{"type":"direct"}]}'
expect 1 routes nonsense
err_has 'nonsense: 12005: '
if [ -z "${ON_WINDOWS:-}" ]; then # the environment doesn't count on Windows
    http_proxy=http://Proxy.check.test:3128 expect 0 routes http://a.test http://localhost
    out_has 'from the environment'
    out_has '  http proxy.check.test:3128, account Änn'
    out_has '  direct'
fi
expect 0 accounts forget PROXY.check.test:3128
expect 0 accounts list
[ ! -s "$work/out" ] || complain "an account is left"

# The slow one is first, so it comes first; all of it is there.
expect 0 get "$site/slow.txt" "$site/fast.txt"
cat "$work/www/slow.txt" "$work/www/fast.txt" > "$work/both"
same "$work/out" "$work/both"

expect 0 get --output "$work/got/" "$site/fast.txt" "$site/again/fast.txt" "$site/"
same "$work/got/fast.txt" "$work/www/fast.txt"
same "$work/got/fast.txt.2" "$work/www/fast.txt"
same "$work/got/index" "$work/www/index.html"

expect 0 put --data-file "$work/body" "$site/inbox/body"
same "$work/www/inbox/body" "$work/body"
expect 0 request --method delete "$site/inbox/body"

expect 3 head "$site/fast.txt" "$site/none"
out_has 'HTTP 200'
out_has 'HTTP 404'
expect 1 get --json "$site/fast.txt" "http://127.0.0.1:$(closed_port)/"
out_has '"status":200,"bytes":5,'
out_has '"error":12029}'
err_has '/: 12029: '
expect 1 get --output "$work/www/fast.txt/x" "$site/fast.txt"
err_has "can't be written"

code=0
"$tessel" get "$site/fast.txt" > /dev/full 2> "$work/err" || code=$?
[ "$code" = 1 ] || complain "a full disk isn't noticed"
exit "$wrong"
