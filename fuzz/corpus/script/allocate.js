function Node(left, right) { this.left = left; this.right = right; }
function tree(depth) { return depth == 0 ? new Node(null, null) : new Node(tree(depth - 1), tree(depth - 1)); }
function check(node) { return node.left == null ? 1 : 1 + check(node.left) + check(node.right); }
var result = 0;
for (var round = 0; round < 12; round++) result += check(tree(14));
for (var i = 0; i < 40; i++) { var o = { index: i, name: "n", list: [i, i] }; result += o.list[1]; }
