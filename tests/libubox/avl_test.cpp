// AVL trees against std::multimap.
#include <gtest/gtest.h>
#include <libubox/avl-cmp.h>
#include <libubox/avl.h>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {
struct item {
    avl_node node;
    std::string key;
    int serial;
};
} // namespace

/// Height of a branch; fails the test where balances, parents or the order are wrong.
static int checked_height(const avl_node *node)
{
    if (!node)
        return 0;
    int left = checked_height(node->left);
    int right = checked_height(node->right);
    EXPECT_EQ(node->balance, right - left);
    EXPECT_LE(abs(right - left), 1);
    EXPECT_TRUE(node->leader);
    for (const avl_node *child : {node->left, node->right}) {
        EXPECT_TRUE(!child || child->parent == node);
    }
    return 1 + std::max(left, right);
}

using model = std::multimap<std::string, int>;

static void expect_same(avl_tree *tree, const model &expected)
{
    checked_height(tree->root);
    ASSERT_EQ(tree->count, expected.size());
    auto it = expected.begin();
    item *i;
    avl_for_each_element(tree, i, node)
    {
        ASSERT_EQ(i->key, it->first);
        ASSERT_EQ(i->serial, it->second);
        ++it;
    }
}

/// The first element at or after the key, the last at or before it, the first of exactly it.
static void expect_same_lookups(avl_tree *tree, const model &expected, const std::string &key)
{
    item *ge, *le, *eq;
    ge = avl_find_ge_element(tree, key.c_str(), ge, node);
    le = avl_find_le_element(tree, key.c_str(), le, node);
    eq = avl_find_element(tree, key.c_str(), eq, node);
    const auto at_least = expected.lower_bound(key), above = expected.upper_bound(key);
    const auto same = [](item *found, bool none, model::const_iterator it) {
        return found ? !none && found->serial == it->second : none;
    };
    ASSERT_TRUE(same(ge, at_least == expected.end(), at_least));
    ASSERT_TRUE(
        same(le, above == expected.begin(), above == expected.begin() ? above : std::prev(above)));
    ASSERT_TRUE(same(eq, at_least == above, at_least));
}

static void run_random(bool dups, unsigned seed)
{
    std::mt19937 random(seed);
    avl_tree tree;
    avl_init(&tree, avl_strcmp, dups, nullptr);
    model expected;
    std::vector<item *> members;
    for (int step = 0; step < 3000; step++) {
        const std::string key = std::to_string(random() % 150);
        if (members.empty() || random() % 100 < (step < 1500 ? 60u : 40u)) {
            members.push_back(new item{{}, key, step});
            members.back()->node.key = members.back()->key.c_str();
            const bool refused = !dups && expected.count(key);
            ASSERT_EQ(avl_insert(&tree, &members.back()->node), refused ? -1 : 0);
            if (!refused) {
                expected.emplace(key, step);
            } else {
                delete members.back();
                members.pop_back();
            }
        } else {
            std::swap(members[random() % members.size()], members.back());
            const auto range = expected.equal_range(members.back()->key);
            expected.erase(std::find_if(range.first, range.second, [&](auto &e) {
                return e.second == members.back()->serial;
            }));
            avl_delete(&tree, &members.back()->node);
            delete members.back();
            members.pop_back();
        }
        if (step % 10 == 0)
            expect_same(&tree, expected);
        expect_same_lookups(&tree, expected, key);
    }
    item *i, *next;
    size_t freed = 0;
    avl_remove_all_elements(&tree, i, node, next)
    {
        freed++;
        delete i;
    }
    EXPECT_EQ(freed, expected.size());
    EXPECT_TRUE(avl_is_empty(&tree) && !avl_find(&tree, "1"));
}

TEST(Avl, BehavesLikeAMapWithAndWithoutDuplicates)
{
    for (unsigned seed = 1; seed <= 3; seed++) {
        run_random(false, seed);
        run_random(true, seed);
    }
}
