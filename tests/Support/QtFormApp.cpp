// A small Qt Widgets application for the accessibility tests: a name field and a button that
// greets whoever the field names, on the window and on standard output.

#include <cstdio>

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>
#include <QWidget>

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  QWidget window;
  window.setWindowTitle("Qt Greeter");
  auto* layout = new QVBoxLayout(&window);
  auto* name = new QLineEdit(&window);
  name->setAccessibleName("Name");
  auto* greet = new QPushButton("Greet", &window);
  auto* greeting = new QLabel("Nobody greeted yet", &window);
  layout->addWidget(name);
  layout->addWidget(greet);
  layout->addWidget(greeting);
  QObject::connect(greet, &QPushButton::clicked, [&] {
    greeting->setText("Hello, " + name->text());
    std::printf("%s\n", name->text().toUtf8().constData());
    std::fflush(stdout);
  });
  window.resize(320, 160);
  window.show();
  return application.exec();
}
