export interface ButtonProps { label: string }
export function Button({ label }: ButtonProps) { //> components.Button.ButtonProps components.Button.ButtonProps.label
  return <button>{label}</button>;
}
export const Theme = { dark: true };
