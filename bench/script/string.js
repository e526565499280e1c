function build(n) {
    var s = "";
    for (var i = 0; i < n; i++) s += "item " + i + ", ";
    return s;
}
function count(s) {
    var spaces = 0;
    for (var i = 0; i < s.length; i++) if (s.charCodeAt(i) == 32) spaces++;
    return spaces;
}
var result = 0;
for (var round = 0; round < 150; round++) result += count(build(800));
