// The primes below a limit, given as an argument.
var limit = Script.Arguments.length > 0 ? Number(Script.Arguments[0]) : 50;
var isComposite = new Array(limit);
var primes = [];
for (var n = 2; n < limit; n++) {
    if (isComposite[n])
        continue;
    primes.push(n);
    for (var multiple = n * n; multiple < limit; multiple += n)
        isComposite[multiple] = true;
}
Script.Echo(primes.length + " primes below " + limit + ": " + primes.join(" "));
