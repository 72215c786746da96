#include "app/accessible_content.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QLabel>
#include <QList>

#include "app/main_window.h"

namespace {

bool HasContent(QWidget const& widget)
{
    auto const* const label = qobject_cast<QLabel const*>(&widget);
    return !widget.isWindow() && (label == nullptr || !label->text().isEmpty());
}

class AccessibleContent : public QAccessibleWidget {
public:
    explicit AccessibleContent(QWidget* content) : QAccessibleWidget(content, QAccessible::Client)
    {}

    int childCount() const override { return static_cast<int>(Children().size()); }
    QAccessibleInterface* child(int index) const override
    {
        return QAccessible::queryAccessibleInterface(Children().value(index));
    }
    int indexOfChild(QAccessibleInterface const* child) const override
    {
        return static_cast<int>(Children().indexOf(child->object()));
    }

private:
    QList<QObject*> Children() const
    {
        QList<QObject*> children;
        for (auto* const child : widget()->children()) {
            auto const* const part = qobject_cast<QWidget const*>(child);
            if (part != nullptr && HasContent(*part)) {
                children.append(child);
            }
        }
        return children;
    }
};

// Qt calls it for each object that assistive technology asks about, once for each of its classes.
QAccessibleInterface* MakeContent(QString const& /*class_name*/, QObject* object)
{
    auto const* const window = qobject_cast<MainWindow*>(object->parent());
    return window != nullptr && window->centralWidget() == object
               ? new AccessibleContent(window->centralWidget())
               : nullptr;
}

}  // namespace

void InstallAccessibleContent()
{
    QAccessible::installFactory(&MakeContent);
}
