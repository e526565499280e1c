var x = 5; y = x++ + -x * (2 && 3) || !x; if (!(y < 3) && y > 1) z = [1,,y][2]; with ({a: 1}) a += 2; try { null.q() } catch (e) { e.message } finally { delete x }
