pytest_plugins = ["tessaline.pytest_plugin"]
