function Point(x, y, z) { this.x = x; this.y = y; this.z = z; this.total = 0; }
function work(n) {
    var p = new Point(1, 2, 3), q = { x: 4, y: 5, z: 6, deep: { value: 1 } };
    for (var i = 0; i < n; i++) {
        p.x = p.x + q.y;
        p.y = q.z - p.z;
        p.total += p.x + p.y;
        q.deep.value = q.deep.value + p.z;
    }
    return p.total + q.deep.value;
}
var result = work(1500000);
