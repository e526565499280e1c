function fib(n) { if (n < 2) return n; return fib(n-1) + fib(n-2); }
Script.Echo(fib(20));
var o = {a:1, b:"x", c:[1,2,3]};
o.a += 5; o.a++; ++o.a; o["c"][1]--; 
Script.Echo(o.a + " " + o.b + " " + o.c);
for (var k in o) Script.Echo(k);
function mk() { var n = 0; return function() { return ++n; }; }
var c1 = mk(), c2 = mk(); c1(); c1();
Script.Echo(c1() + c2());
function P(x, y) { this.x = x; this.y = y; }
P.prototype.sum = function() { return this.x + this.y; };
var p = new P(3, 4); Script.Echo(p.sum());
function args() { return arguments.length + ":" + arguments[0] + arguments[2]; }
Script.Echo(args(1,2,3));
var s = ""; for (var i = 0; i < 10; i++) { if (i == 3) continue; if (i == 8) break; s += i; } Script.Echo(s);
function t(x) { try { if (x) throw new Error("boom"); return "ret"; } catch (e) { return e.message; } finally { Script.Echo("fin"); } }
Script.Echo(t(1)); Script.Echo(t(0));
L: for (var i = 0; i < 3; i++) { for (var j = 0; j < 3; j++) { try { if (j == 1) continue L; if (i == 2) break L; } finally { Script.Echo("f" + i + j); } } }
switch (3) { case 1: Script.Echo("one"); case 3: Script.Echo("three"); case 4: Script.Echo("four"); break; default: Script.Echo("d"); }
with ({q: 7}) { Script.Echo(q); q = 8; }
var a = [5,3,9,1]; a.sort(function(x,y){return x-y}); Script.Echo(a.join());
Script.Echo(1 < 2 && 3 > 2 || false); Script.Echo(!(1 < 2)); Script.Echo(typeof null + typeof mk + typeof "x" + typeof undefined);
var x = 5; Script.Echo(x + (x = 7) + x);
function q(a) { var b = a; a++; return b + ":" + a + ":" + a++ + ":" + a; } Script.Echo(q(1));
Script.Echo(-7 % 3); Script.Echo(1/3); Script.Echo(0.1+0.2); Script.Echo(1e21); Script.Echo(-1 >>> 0);
do { x--; } while (x > 3); Script.Echo(x);
null.foo
