"""The words, lines and keys that random sessions are made of."""


def pieces(text):
    return text.split(b"|")


GARBAGE = b' "/;[]~-!$*.0a\\%\x01\t\xff'
ESCAPES = pieces(b"\x1b[A|\x1b[B|\x1b[C|\x1b[D|\x1b[1~|\x1b[3~|\x1b[4~|\x1b[5~|\x1b[6~|\x1b[C|\x1b[D"
                 b"|\x1b[2~|\x1b[H|\x1bOA|\x1b\x1b[D|\x1b[[|\x1b[1;5C|\x1bx|\x1b[3A|\x1b[11~")
CONTROLS = pieces(b"\x01|\x02|\x04|\x05|\x06|\x08|\x0b|\x0e|\x10|\x17|\x7f|\t|\x02|\x02|\x7f|\t"
                  b"|\x07|\x80|\xc3\xa9|\xff|\x0c|\x15|\x11|\x13|\x16")
MISTAKES = pieces(b"z\x7f|z\x08|zy\x02\x7f\x04|z\x1b[D\x1b[3~|z\x02\x0b")
NUMBERS = pieces(b'0|1|5|42|127|128|255|256|-1|" -5"|" 7 "|65536|1.5|0.1|1e5|1e400|3.4e38|3.5e38'
                 b'|true|false|abc|""|9223372036854775807|18446744073709551616|0x10|1.0|007|" -0"'
                 b'|100000|123456789|2e-3|"1 2"|1,5|" -1e-3"')
WORDS = pieces(b'hello|"two words"|""|-5|" lead"|x|"a|say"|3|\xc3\xa9|%s|a\tb|\xff\xfe|\x1b[1m'
               b'|"it is ""|12')
FILES = pieces(b"f|saved|again|missing/f")
HISTORY = pieces(b"!!|!-1|!-2|!0|!1|!5|!l|!get|!zz|!|!!x|!-x|history|get !$|ls !$|ls -l !$ !$"
                 b"|history x|history -r|!99999999999999999999|!-99x|!1 x|pwd !$|!--1|x!!$")
KEYS = pieces(b"ls;q\t|   l\t|c\t|\t|cd ..\t|tab \t|ls \t|pwd;ls \t|ls -l /\t|get ~\t|get ~/\t"
              b"|ls\x01\t|cd\t\t|set 1 \t|zz \t|ls ..\t|ls ../\t|\"\t|ls \"\t|\x09\x09\x7f|tab c")
LINES = pieces(b'pwd|pwd x|end|terminate|bt|bt -x|bt x|setport a b|setport a b c|foo|foo bar|convert'
               b'|convert a|rn a b c|con|dis x|load|save x|rm -r|mkdir a b|help me|exit now|q -x|-x'
               b'|-l x|"" x|"pwd"|PWD|$echo one two| $echo x||  |# note|get -r|ls /a /b|set|str'
               b'|cat -r|eu -c x|du -l|cmdfrom|from|to|cd a b|end x|$echo a b  c|set -l|to -f|get -'
               b'|ls -q|ls -rq -l|history|tab|from f x y|cmdfrom ""|to ""|setport a b c d|du "" x')
SCRIPT_LINES = pieces(b'"pwd"|""|"| pwd |pwd;;pwd|;|cmdfrom f|pwd; $echo x|"pwd;pwd|$echo y|\tpwd|""pwd'
                      b'|"" pwd|  "pwd')
SEPARATORS = [b";", b"; "]
ODD_PATHS = pieces(b'/|..|~|.|a|../x|[0]|""|//|/..|noname-|noname-1|noname-1x|noname- 1|noname-01'
                   b'|~~|/~|-|[1]x')
ENDINGS = pieces(b"/|[0]|[]|[99]|[x]|[1x]|/..|x|//|[1|[ 1]|]|[0][1]|[0]x|/.|/[0]")
