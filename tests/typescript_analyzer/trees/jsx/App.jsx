import { Button, Theme } from "./components/Button"; //> components.Button.Button components.Button.Theme
export function App() {
  return (
    <div className={Theme.dark ? "d" : "l"}>{/*> components.Button.Theme components.Button.Theme.dark */}
      <Button label="ok" />{/*> components.Button.Button */}
    </div>
  );
}
