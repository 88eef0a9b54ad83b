// AVL trees against std::multimap.
#include <libubox/avl-cmp.h>
#include <libubox/avl.h>

#include <gtest/gtest.h>
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

static void expect_same_lookups(avl_tree *tree, const model &expected, const std::string &key)
{
    item *i;
    auto at_least = expected.lower_bound(key);
    auto above = expected.upper_bound(key);
    i = avl_find_ge_element(tree, key.c_str(), i, node);
    ASSERT_EQ(i ? i->serial : -1, at_least == expected.end() ? -1 : at_least->second);
    i = avl_find_le_element(tree, key.c_str(), i, node);
    ASSERT_EQ(i ? i->serial : -1, above == expected.begin() ? -1 : std::prev(above)->second);
    i = avl_find_element(tree, key.c_str(), i, node);
    ASSERT_EQ(i ? i->serial : -1, at_least == above ? -1 : at_least->second);
}

static void run_random(bool dups, unsigned seed)
{
    std::mt19937 random(seed);
    avl_tree tree;
    avl_init(&tree, avl_strcmp, dups, nullptr);
    model expected;
    std::vector<item *> members;
    for (int step = 0; step < 3000; step++) {
        std::string key = std::to_string(random() % 150);
        if (members.empty() || random() % 100 < (step < 1500 ? 60u : 40u)) {
            auto *added = new item{{}, key, step};
            added->node.key = added->key.c_str();
            bool refused = !dups && expected.count(key);
            ASSERT_EQ(avl_insert(&tree, &added->node), refused ? -1 : 0);
            if (refused) {
                delete added;
            } else {
                expected.emplace(key, step);
                members.push_back(added);
            }
        } else {
            std::swap(members[random() % members.size()], members.back());
            item *gone = members.back();
            members.pop_back();
            avl_delete(&tree, &gone->node);
            auto range = expected.equal_range(gone->key);
            expected.erase(std::find_if(range.first, range.second,
                                        [&](auto &e) { return e.second == gone->serial; }));
            delete gone;
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

TEST(avl, behaves_like_a_map_with_and_without_duplicates)
{
    for (unsigned seed = 1; seed <= 3; seed++) {
        run_random(false, seed);
        run_random(true, seed);
    }
}
