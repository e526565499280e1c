function sieve(size) {
    var flags = [], count = 0, i, k;
    for (i = 0; i <= size; i++) flags[i] = true;
    for (i = 2; i <= size; i++)
        if (flags[i]) {
            for (k = i + i; k <= size; k += i) flags[k] = false;
            count++;
        }
    return count;
}
var result = 0;
for (var round = 0; round < 8; round++) result = sieve(300000);
