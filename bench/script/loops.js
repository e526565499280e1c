function loops(n) {
    var x = 0;
    for (var a = 0; a < n; a++)
        for (var b = 0; b < n; b++)
            for (var c = 0; c < n; c++)
                for (var d = 0; d < n; d++)
                    x += (a ^ b) + (c & d) - 1;
    return x;
}
var result = loops(56);
