function Counter() { this.count = 0; }
Counter.prototype.get = function() { return this.count; };
Counter.prototype.add = function(n) { this.count = this.get() + n; return this; };
function Twice() { this.count = 0; }
Twice.prototype = new Counter();
Twice.prototype.add = function(n) { this.count = this.get() + n + n; return this; };
function work(n) {
    var a = new Counter(), b = new Twice();
    for (var i = 0; i < n; i++) { a.add(1); b.add(i & 3); }
    return a.get() + b.get();
}
var result = work(700000);
