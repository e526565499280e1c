#include <array>
#include <deque>
#include <forward_list>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <variant>
#include <vector>

// What the headers leave to a library that isn't linked.
extern "C" char heap_start[];
static char *heap_end = heap_start;
void *operator new(std::size_t n) { char *p = heap_end; heap_end += (n + 7) & ~7u; return p; }
void *operator new[](std::size_t n) { return operator new(n); }
void operator delete[](void *) noexcept {}
void operator delete(void *) noexcept {}
void operator delete(void *, std::size_t) noexcept {}
extern "C" void *memcpy(void *d, const void *s, unsigned n) { for (unsigned i = 0; i < n; ++i) ((volatile char *)d)[i] = ((const char *)s)[i]; return d; }
extern "C" void *memmove(void *d, const void *s, unsigned n) { char *a = (char *)d; const char *b = (const char *)s; if (a < b) return memcpy(d, s, n); while (n--) ((volatile char *)a)[n] = b[n]; return d; }
extern "C" void *memset(void *d, int c, unsigned n) { for (unsigned i = 0; i < n; ++i) ((volatile char *)d)[i] = char(c); return d; }
extern "C" unsigned strlen(const char *s) { unsigned n = 0; while (((volatile const char *)s)[n]) ++n; return n; }
extern "C" int memcmp(const void *a, const void *b, unsigned n) { for (unsigned i = 0; i < n; ++i) if (int d = ((const unsigned char *)a)[i] - ((const unsigned char *)b)[i]) return d; return 0; }
extern "C" void *memchr(const void *a, int c, unsigned n) { for (unsigned i = 0; i < n; ++i) if (((const char *)a)[i] == char(c)) return (char *)a + i; return nullptr; }
extern "C" void __aeabi_memcpy(void *d, const void *s, unsigned n) { memcpy(d, s, n); }
extern "C" int __aeabi_atexit(void *, void (*)(void *), void *) { return 0; }
extern "C" { void *__dso_handle; }
extern "C" [[noreturn]] void abort() { for (;;) {} }
bool std::_Sp_make_shared_tag::_S_eq(const std::type_info &) noexcept { return false; }
namespace std {
void __throw_length_error(const char *) { abort(); }
void __throw_logic_error(const char *) { abort(); }
void __throw_bad_alloc() { abort(); }
void __throw_bad_array_new_length() { abort(); }
void __throw_out_of_range_fmt(const char *, ...) { abort(); }
namespace __detail {
void _List_node_base::_M_hook(_List_node_base *p) noexcept { _M_next = p; _M_prev = p->_M_prev; p->_M_prev->_M_next = this; p->_M_prev = this; }
std::size_t _Prime_rehash_policy::_M_next_bkt(std::size_t n) const { _M_next_resize = n; return n < 7 ? 7 : n | 1; }
std::pair<bool, std::size_t> _Prime_rehash_policy::_M_need_rehash(std::size_t b, std::size_t e, std::size_t i) const { if (e + i > b) return {true, b * 2 + 5}; return {false, 0}; }
}
_Rb_tree_node_base *_Rb_tree_increment(_Rb_tree_node_base *x) noexcept {
    if (x->_M_right) { x = x->_M_right; while (x->_M_left) x = x->_M_left; return x; }
    _Rb_tree_node_base *y = x->_M_parent; while (x == y->_M_right) { x = y; y = y->_M_parent; } return x->_M_right != y ? y : x; }
const _Rb_tree_node_base *_Rb_tree_increment(const _Rb_tree_node_base *x) noexcept { return _Rb_tree_increment(const_cast<_Rb_tree_node_base *>(x)); }
_Rb_tree_node_base *_Rb_tree_decrement(_Rb_tree_node_base *x) noexcept {
    if (x->_M_parent->_M_parent == x && x->_M_color == _S_red) return x->_M_right;
    if (x->_M_left) { x = x->_M_left; while (x->_M_right) x = x->_M_right; return x; }
    _Rb_tree_node_base *y = x->_M_parent; while (x == y->_M_left) { x = y; y = y->_M_parent; } return y; }
void _Rb_tree_insert_and_rebalance(const bool left, _Rb_tree_node_base *x, _Rb_tree_node_base *p, _Rb_tree_node_base &h) noexcept {
    x->_M_parent = p; x->_M_left = x->_M_right = nullptr; x->_M_color = _S_black;
    if (left) { p->_M_left = x; if (p == &h) { h._M_parent = x; h._M_right = x; } else if (p == h._M_left) h._M_left = x; }
    else { p->_M_right = x; if (p == h._M_right) h._M_right = x; } }
}

template class std::allocator<char>;
struct Point { int x, y; };
struct Deleter { int tag; void operator()(Point *) const {} };
std::string shortText = "hello", longText = "a text that is too long for the object itself", emptyText;
std::string_view view;
std::vector<int> numbers; std::vector<Point> points; std::vector<std::string> words; std::vector<bool> flags; std::vector<std::vector<int>> nested;
std::list<int> chain; std::list<std::string> names; std::forward_list<short> single;
std::map<int, Point> places; std::map<std::string, int> ages; std::set<char> letters; std::multimap<int, int> many;
std::deque<int> queue; std::deque<Point> longQueue; std::deque<char> emptyQueue;
std::unique_ptr<Point> owner; std::unique_ptr<Point, Deleter> special; std::unique_ptr<int[]> block;
std::shared_ptr<Point> shared, shared2; std::weak_ptr<Point> weak;
std::array<int, 3> fixed = {1, 2, 3}; std::pair<int, char> both = {7, 'z'}; std::tuple<int, char, double> three = {1, 'b', 2.5};
std::unordered_map<int, int> hashed; std::unordered_set<int> unique; 
std::optional<int> some, nothing; std::variant<int, double> either;
struct Device { std::string name; std::vector<int> samples; } device;
typedef std::map<std::string, std::vector<int>> Table; Table table;

extern "C" __attribute__((noinline)) void filled() { asm volatile(""); }
extern "C" void fill()
{
    view = std::string_view("abcdef").substr(1, 3);
    for (int i = 0; i < 5; ++i) { numbers.push_back(i * i); points.push_back({i, -i}); words.push_back(std::string(i + 1, char('a' + i))); flags.push_back(i % 2); nested.push_back({i, i + 1}); chain.push_back(10 - i); single.push_front(short(i)); }
    names.push_back("one"); names.push_back("two");
    for (int i : {5, 2, 8, 1, 9, 3}) { places[i] = {i, 2 * i}; many.insert({i % 3, i}); hashed[i] = i * 100; unique.insert(i); }
    ages["eve"] = 30; ages["bob"] = 41; ages["al"] = 7;
    for (char c : {'q', 'a', 'm'}) letters.insert(c);
    for (int i = 0; i < 7; ++i) queue.push_back(i);
    queue.push_front(-1);
    for (int i = 0; i < 200; ++i) longQueue.push_back({i, i});
    for (int i = 0; i < 70; ++i) longQueue.pop_front();
    owner.reset(new Point{3, 4}); special = std::unique_ptr<Point, Deleter>(new Point{5, 6}, Deleter{9}); block.reset(new int[2]{1, 2});
    shared = std::make_shared<Point>(Point{1, 2}); shared2 = shared; weak = shared;
    some = 12; either = 2.5;
    device.name = "uart0"; device.samples = {4, 5};
    table["x"] = {1}; table["y"] = {2, 3};
}
extern "C" void (*__init_array_start[])(); extern "C" void (*__init_array_end[])();
extern "C" void reset()
{
    for (auto f = __init_array_start; f != __init_array_end; ++f) (*f)();
    fill(); filled(); for (;;) {}
}
extern "C" char stack_top[];
__attribute__((section(".vectors"), used)) void (*const vectors[])() = {(void (*)())stack_top, reset};
