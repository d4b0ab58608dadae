#include "ui/ViewController.h"

#include <QPointer>
#include <QWidget>
#include <gtest/gtest.h>
#include <memory>

using namespace corvina;

namespace {

// Builds a plain widget as its view.
class PlainController : public ViewController {
public:
    void loadView() override { setView(new QWidget); }
};

} // namespace

TEST(ViewController, AViewNeverShownGoesWithItsController) {
    auto controller = std::make_unique<PlainController>();
    QPointer<QWidget> view = controller->view();
    ASSERT_TRUE(view);
    controller.reset();
    EXPECT_FALSE(view);
}

TEST(ViewController, AViewInAWindowBelongsToTheWindow) {
    auto window = std::make_unique<QWidget>();
    auto controller = std::make_unique<PlainController>();
    QPointer<QWidget> view = controller->view();
    view->setParent(window.get());
    controller.reset();
    EXPECT_TRUE(view);
    window.reset();
    EXPECT_FALSE(view);
}

TEST(ViewController, AViewTakenOutOfItsWindowAgainIsTheControllersOnceMore) {
    auto window = std::make_unique<QWidget>();
    auto controller = std::make_unique<PlainController>();
    QPointer<QWidget> view = controller->view();
    view->setParent(window.get());
    view->setParent(nullptr);
    window.reset();
    EXPECT_TRUE(view);
    controller.reset();
    EXPECT_FALSE(view);
}

TEST(ViewController, AViewDeletedElsewhereIsNotDeletedAgain) {
    auto controller = std::make_unique<PlainController>();
    QPointer<QWidget> view = controller->view();
    delete view.data();
    EXPECT_FALSE(controller->isViewLoaded());
    controller.reset(); // would crash or be caught by the sanitizers on a second delete
    SUCCEED();
}
