// Globals that hold containers of the GNU C++ library, filled when the program starts. It runs on a bare Cortex-M3
// with RAM at 0x20000000 and calls filled() when it is done. The headers alone are needed: what they leave to the
// library stands here, as simple as it can be.
#include <array>
#include <atomic>
#include <bitset>
#include <deque>
#include <forward_list>
#include <functional>
#include <initializer_list>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <queue>
#include <set>
#include <span>
#include <stack>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <variant>
#include <vector>

extern "C" {
extern char heap_start[], stack_top[];
extern void (*__init_array_start[])(), (*__init_array_end[])();
void *__dso_handle;

void *memcpy(void *dest, const void *source, unsigned count)
{
    for (unsigned i = 0; i < count; ++i)
        static_cast<volatile char *>(dest)[i] = static_cast<const char *>(source)[i];
    return dest;
}
void *memmove(void *dest, const void *source, unsigned count)
{
    if (dest < source)
        return memcpy(dest, source, count);
    while (count--)
        static_cast<volatile char *>(dest)[count] = static_cast<const char *>(source)[count];
    return dest;
}
void *memset(void *dest, int value, unsigned count)
{
    for (unsigned i = 0; i < count; ++i)
        static_cast<volatile char *>(dest)[i] = char(value);
    return dest;
}
unsigned strlen(const char *text)
{
    unsigned length = 0;
    while (static_cast<const volatile char *>(text)[length])
        ++length;
    return length;
}
int memcmp(const void *a, const void *b, unsigned count)
{
    const unsigned char *left = static_cast<const unsigned char *>(a), *right = static_cast<const unsigned char *>(b);
    for (unsigned i = 0; i < count; ++i) {
        if (left[i] != right[i])
            return left[i] - right[i];
    }
    return 0;
}
int __aeabi_atexit(void *, void (*)(void *), void *)
{
    return 0;
}
[[noreturn]] void abort()
{
    for (;;) {
    }
}
}

void *operator new(std::size_t size)
{
    static char *next = heap_start;
    char *block = next;
    next += (size + 7) & ~std::size_t(7);
    return block;
}
void *operator new[](std::size_t size)
{
    return operator new(size);
}
void operator delete(void *) noexcept {}
void operator delete[](void *) noexcept {}
void operator delete(void *, std::size_t) noexcept {}

template class std::allocator<char>;
bool std::_Sp_make_shared_tag::_S_eq(const std::type_info &) noexcept
{
    return false;
}
namespace std {
void __throw_length_error(const char *)
{
    abort();
}
void __throw_logic_error(const char *)
{
    abort();
}
void __throw_bad_alloc()
{
    abort();
}
void __throw_bad_array_new_length()
{
    abort();
}
void __throw_out_of_range_fmt(const char *, ...)
{
    abort();
}
std::size_t _Hash_bytes(const void *, std::size_t size, std::size_t)
{
    return size;
}
namespace __detail {
void _List_node_base::_M_hook(_List_node_base *position) noexcept
{
    _M_next = position;
    _M_prev = position->_M_prev;
    position->_M_prev->_M_next = this;
    position->_M_prev = this;
}
std::size_t _Prime_rehash_policy::_M_next_bkt(std::size_t count) const
{
    return _M_next_resize = count | 7;
}
std::pair<bool, std::size_t> _Prime_rehash_policy::_M_need_rehash(std::size_t buckets, std::size_t elements,
                                                                  std::size_t more) const
{
    return {elements + more > buckets, buckets * 2 + 5};
}
} // namespace __detail

_Rb_tree_node_base *_Rb_tree_increment(_Rb_tree_node_base *node) noexcept
{
    if (node->_M_right) {
        node = node->_M_right;
        while (node->_M_left)
            node = node->_M_left;
        return node;
    }
    _Rb_tree_node_base *parent = node->_M_parent;
    while (node == parent->_M_right) {
        node = parent;
        parent = parent->_M_parent;
    }
    return node->_M_right != parent ? parent : node;
}
const _Rb_tree_node_base *_Rb_tree_increment(const _Rb_tree_node_base *node) noexcept
{
    return _Rb_tree_increment(const_cast<_Rb_tree_node_base *>(node));
}
_Rb_tree_node_base *_Rb_tree_decrement(_Rb_tree_node_base *node) noexcept
{
    if (node->_M_color == _S_red && node->_M_parent->_M_parent == node)
        return node->_M_right;
    if (node->_M_left) {
        node = node->_M_left;
        while (node->_M_right)
            node = node->_M_right;
        return node;
    }
    _Rb_tree_node_base *parent = node->_M_parent;
    while (node == parent->_M_left) {
        node = parent;
        parent = parent->_M_parent;
    }
    return parent;
}
// Never balances: a tree all the same.
void _Rb_tree_insert_and_rebalance(const bool left, _Rb_tree_node_base *node, _Rb_tree_node_base *parent,
                                   _Rb_tree_node_base &header) noexcept
{
    node->_M_parent = parent;
    node->_M_left = node->_M_right = nullptr;
    node->_M_color = _S_black;
    (left ? parent->_M_left : parent->_M_right) = node;
    if (parent == &header) {
        header._M_parent = header._M_left = header._M_right = node;
    } else if (left && parent == header._M_left) {
        header._M_left = node;
    } else if (!left && parent == header._M_right) {
        header._M_right = node;
    }
}
} // namespace std

struct Point
{
    int x, y;
};
struct Deleter
{
    int tag;
    void operator()(Point *) const {}
};

std::string shortText = "hello", longText = "a text that is too long for the object itself", emptyText;
std::string_view view;
std::vector<int> numbers;
std::vector<Point> points;
std::vector<std::string> words;
std::vector<bool> flags;
std::vector<std::vector<int>> nested;
std::list<int> chain;
std::list<std::string> names;
std::forward_list<double> single;
std::map<int, Point> places;
std::map<std::string, int> ages;
std::multimap<int, short> many;
std::set<char> letters;
std::deque<int> queue;
std::deque<Point> longQueue;
std::deque<char> emptyQueue;
std::unordered_map<int, double> hashed;
std::unordered_set<std::string> texts;
std::unique_ptr<Point> owner, nobody;
std::unique_ptr<Point, Deleter> special;
std::shared_ptr<Point> shared, another, none;
std::weak_ptr<Point> weak;
std::array<int, 3> fixed = {1, 2, 3};
std::pair<int, char> both = {7, 'z'};
std::optional<int> some, nothing;
std::tuple<int, char, std::string> triple = {1, 'c', "three"};
std::tuple<Deleter> alone = {{6}};
std::tuple<> nobodyHere;
std::variant<int, double, std::string> choice = "text", other = 2.5;
std::span<int> window;
Point corners[2] = {{3, -3}, {4, -4}};
std::span<Point, 2> pair = corners;
std::stack<int> pile;
std::queue<short, std::list<short>> waiting;
std::priority_queue<int> urgent;
std::initializer_list<int> listed = {3, 2, 1};
std::bitset<35> bits(0x600000001);
std::atomic<int> counter = 5;
std::atomic<bool> ready = true;
std::atomic<Point *> current;
std::reference_wrapper<std::array<int, 3>> wrapped = fixed;
struct Device
{
    std::string name;
    std::vector<int> samples;
} device;
typedef std::map<std::string, std::vector<int>> Table;
Table table;
std::list<int> circular; // made so on purpose

extern "C" __attribute__((noinline)) void filled()
{
    asm volatile("");
}

static void fill()
{
    view = std::string_view("abcdef").substr(1, 3);
    for (int i = 0; i < 5; ++i) {
        numbers.push_back(i * i);
        points.push_back({i, -i});
        words.push_back(std::string(i + 1, char('a' + i)));
        flags.push_back(i % 2);
        nested.push_back({i, i + 1});
        chain.push_back(10 - i);
        single.push_front(i + 0.5);
    }
    for (int i = 0; i < 35; ++i)
        flags.push_back(true);
    names.push_back("one");
    names.push_back("two");
    for (int i : {5, 2, 8, 1, 9, 3}) {
        places[i] = {i, 2 * i};
        many.insert({i % 3, short(i)});
    }
    hashed[4] = 4.5;
    texts.insert("single");
    ages["eve"] = 30;
    ages["bob"] = 41;
    ages["al"] = 7;
    for (char c : {'q', 'a', 'm'})
        letters.insert(c);
    for (int i = 0; i < 7; ++i)
        queue.push_back(i);
    queue.push_front(-1);
    for (int i = 0; i < 200; ++i)
        longQueue.push_back({i, i});
    for (int i = 0; i < 70; ++i)
        longQueue.pop_front();
    owner.reset(new Point{3, 4});
    special = std::unique_ptr<Point, Deleter>(new Point{5, 6}, Deleter{9});
    shared = std::make_shared<Point>(Point{1, 2});
    another = weak.lock() ? none : shared;
    weak = shared;
    some = 12;
    window = std::span(numbers).subspan(1, 3);
    for (short i : {4, 9, 6}) {
        pile.push(i);
        waiting.push(i);
        urgent.push(i);
    }
    device.name = "uart0";
    device.samples = {4, 5};
    table["x"] = {1};
    table["y"] = {2, 3};
    for (int i = 1; i < 4; ++i)
        circular.push_back(i);
    struct Node
    {
        Node *next;
    };
    Node *first = reinterpret_cast<Node *>(&circular)->next;
    first->next->next->next = first;                      // the last leads to the first
    reinterpret_cast<unsigned *>(&circular)[2] = 1000000; // elements, it says
    filled();
}

extern "C" void reset()
{
    for (auto initialize = __init_array_start; initialize != __init_array_end; ++initialize)
        (*initialize)();
    fill();
    for (;;) {
    }
}

__attribute__((section(".vectors"), used)) void (*const vectors[])() = {reinterpret_cast<void (*)()>(stack_top), reset};
