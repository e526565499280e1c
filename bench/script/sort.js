function numbers(n) {
    var a = [], seed = 42;
    for (var i = 0; i < n; i++) { seed = (seed * 1103515245 + 12345) % 2147483648; a[i] = seed; }
    return a;
}
var result = 0;
for (var round = 0; round < 3; round++) {
    var a = numbers(50000);
    a.sort(function(x, y) { return x - y; });
    result += a[0] + a[49999];
}
